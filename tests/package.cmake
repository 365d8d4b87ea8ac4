# What operators read and install.
add_executable(streamdump_test streamdump_test.cpp)
target_link_libraries(streamdump_test PRIVATE
    mosa_describe mosa_stream_file mosa_process GTest::gtest_main)
target_compile_definitions(streamdump_test PRIVATE
    STREAMDUMP="$<TARGET_FILE:streamdump>"
    WIRE_FORMAT="${PROJECT_SOURCE_DIR}/docs/wire-format.md"
    EXAMPLES="${PROJECT_SOURCE_DIR}/examples")
add_dependencies(streamdump_test streamdump)
gtest_discover_tests(streamdump_test PROPERTIES ${IN_PROCESS_TEST})

add_executable(stats_test stats_test.cpp)
target_link_libraries(stats_test PRIVATE mosa_process GTest::gtest_main)
target_compile_definitions(stats_test PRIVATE
    SERVER="$<TARGET_FILE:server>" PLAY="$<TARGET_FILE:play>"
    EXAMPLES="${PROJECT_SOURCE_DIR}/examples")
add_dependencies(stats_test server play)
gtest_discover_tests(stats_test PROPERTIES ${JOB_TEST} ${NO_LEAKS})

# The package is that of an ordinary build, and the texts are those of every build.
if(NOT MOSA_SANITIZE)
    add_test(NAME package
        COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/package.sh ${CMAKE_BINARY_DIR} ${CMAKE_CPACK_COMMAND})
    set_tests_properties(package PROPERTIES ${MACHINE_TEST} SKIP_RETURN_CODE 77)
    add_test(NAME messages COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/messages.sh ${PROJECT_SOURCE_DIR})
    set_tests_properties(messages PROPERTIES ${IN_PROCESS_TEST})
endif()
