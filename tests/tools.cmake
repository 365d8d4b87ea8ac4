# The programs for people who run a wall.
add_executable(wallTool_test wallTool_test.cpp)
target_compile_definitions(wallTool_test PRIVATE
    PROGRAMS="${CMAKE_BINARY_DIR}" EXAMPLES="${PROJECT_SOURCE_DIR}/examples")
target_link_libraries(wallTool_test PRIVATE
    mosa_wall_tool mosa_process mosa_stream_file mosa_image mosa_wall_file mosa_play_options mosa_capture_socket
    GTest::gtest_main)
add_dependencies(wallTool_test server play mosa-wall)
gtest_discover_tests(wallTool_test PROPERTIES TIMEOUT 300 PROCESSORS 2 RESOURCE_LOCK jobs
    ENVIRONMENT "ASAN_OPTIONS=detect_leaks=0")
