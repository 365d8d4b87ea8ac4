# Running programs, captured.
if(NOT TARGET mosa-wall OR NOT TARGET capture)
    return()
endif()

add_executable(captureProgram captureProgram.cpp keptScene.cpp)
# The capture library takes the place of what it is linked with.
target_link_libraries(captureProgram PRIVATE mosa_settings GL X11::X11)
add_executable(smallProgram smallProgram.cpp)
target_link_libraries(smallProgram PRIVATE mosa_settings GL ${SYSTEM_libEGL.so.1} X11::X11
    Threads::Threads)
add_executable(capture_test capture_test.cpp)
set(QUOTED ${CAPTURE_SYSTEM_LIBRARIES})
list(TRANSFORM QUOTED REPLACE "(.+)" "\"\\1\"")
list(JOIN QUOTED "," QUOTED)
target_compile_definitions(capture_test PRIVATE ${FEW_WALLS} PROGRAMS="${CMAKE_BINARY_DIR}"
    SYSTEM_LIBRARIES=${QUOTED})
target_link_libraries(capture_test PRIVATE mosa_describe mosa_wire mosa_image mosa_process
    mosa_stream_file GTest::gtest_main)
add_dependencies(capture_test captureProgram smallProgram server play mosa-wall capture)
gtest_discover_tests(capture_test NO_PRETTY_VALUES PROPERTIES ${PICTURE_TEST} ${NO_LEAKS})

# The memory between a program and the wall's process; and programs with several threads, always
# under the thread sanitizer, and the library with them.
add_executable(ring_test ring_test.cpp ${PROJECT_SOURCE_DIR}/client/captureRing.cpp)
target_link_libraries(ring_test PRIVATE mosa_settings Threads::Threads GTest::gtest_main)
gtest_discover_tests(ring_test PROPERTIES ${IN_PROCESS_TEST})
if(TARGET capture_threads)
    add_executable(ring_test_threads ring_test.cpp ${PROJECT_SOURCE_DIR}/client/captureRing.cpp)
    target_compile_options(ring_test_threads PRIVATE -fsanitize=thread -O1 -g1)
    target_link_options(ring_test_threads PRIVATE -fsanitize=thread)
    target_link_libraries(ring_test_threads PRIVATE mosa_settings Threads::Threads GTest::gtest_main)
    add_test(NAME ring_test_threads COMMAND ring_test_threads)
    set_tests_properties(ring_test_threads PROPERTIES ${IN_PROCESS_TEST})
    add_executable(smallProgram_threads smallProgram.cpp)
    target_compile_options(smallProgram_threads PRIVATE -fsanitize=thread -O1 -g1)
    target_link_options(smallProgram_threads PRIVATE -fsanitize=thread)
    target_link_libraries(smallProgram_threads PRIVATE mosa_settings GL ${SYSTEM_libEGL.so.1} X11::X11
        Threads::Threads)
    target_compile_definitions(capture_test PRIVATE WITH_THREADS)
    add_dependencies(capture_test capture_threads smallProgram_threads)
endif()
