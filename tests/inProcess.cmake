# Tests of decoding, tables and overloads in one process, against a recording operation table.

# A thousand templates of entry points, for the tests and for the library below.
add_library(recorder_entries OBJECT support/recorder.cpp)
target_include_directories(recorder_entries PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(recorder_entries PRIVATE mosa_settings)
set_source_files_properties(support/recorder.cpp PROPERTIES COMPILE_OPTIONS -fno-sanitize=all)
set_target_properties(recorder_entries PROPERTIES
    POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden)

# The same records for whole jobs, as a system library. -Bsymbolic and hidden symbols keep it apart
# from what the server exports.
add_library(recorder SHARED support/recorderLibrary.cpp $<TARGET_OBJECTS:recorder_entries>)
target_include_directories(recorder PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(recorder PRIVATE mosa_settings X11::X11)
set_target_properties(recorder PROPERTIES CXX_VISIBILITY_PRESET hidden
    LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)

# Overload libraries.
foreach(label first second)
    add_library(overload_${label} MODULE support/overloadLibrary.cpp)
    target_compile_definitions(overload_${label} PRIVATE OVERLOAD_LABEL="${label}")
    target_link_libraries(overload_${label} PRIVATE mosa_settings)
    set_target_properties(overload_${label} PROPERTIES PREFIX ""
        LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
endforeach()

add_executable(in_process_test
    arguments_test.cpp
    buffers_test.cpp
    clientMemory_test.cpp
    decoder_test.cpp
    encoder_test.cpp
    glx_test.cpp
    loader_test.cpp
    names_test.cpp
    rasterImages_test.cpp
    records_test.cpp
    special_test.cpp
    tile_test.cpp
    wallFile_test.cpp
    support/serverState.cpp
    support/serverTables.cpp
    ${PROJECT_SOURCE_DIR}/shuffle/buf.cpp
    $<TARGET_OBJECTS:recorder_entries>)
mosa_precompile(in_process_test support/serverState.h <algorithm> <fstream> <memory>)
target_include_directories(in_process_test PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
target_compile_definitions(in_process_test PRIVATE
    TEST_DATA="${CMAKE_CURRENT_SOURCE_DIR}/data"
    RECORDER_LIBRARY="$<TARGET_FILE:recorder>"
    OVERLOAD_DIR="${CMAKE_BINARY_DIR}/tests" AWAKE_LIBRARY="$<TARGET_FILE:awake>")
add_dependencies(in_process_test awake recorder overload_first overload_second)
# What overload libraries refer to.
target_link_options(in_process_test PRIVATE
    -Wl,--dynamic-list=${PROJECT_SOURCE_DIR}/overload/exports.list)
target_link_libraries(in_process_test PRIVATE
    mosa_decoding mosa_image mosa_process ZLIB::ZLIB GTest::gtest_main)
# A process for each: the tables are the server's, and live as long as it does.
gtest_discover_tests(in_process_test PROPERTIES ${IN_PROCESS_TEST} ${NO_LEAKS})
