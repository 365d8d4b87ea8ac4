# The programs for people who run a wall.
add_executable(wallTool_test wallTool_test.cpp)
target_compile_definitions(wallTool_test PRIVATE
    PROGRAMS="${CMAKE_BINARY_DIR}" EXAMPLES="${PROJECT_SOURCE_DIR}/examples"
    MANUALS="${PROJECT_SOURCE_DIR}/docs/man")
target_link_libraries(wallTool_test PRIVATE
    mosa_wall_tool mosa_process mosa_stream_file mosa_image mosa_wall_file mosa_play_options mosa_capture_socket
    PkgConfig::XCB GTest::gtest_main)
add_dependencies(wallTool_test server play mosa-wall streamdump)
gtest_discover_tests(wallTool_test PROPERTIES ${JOB_TEST} ${NO_LEAKS})

add_executable(areas_test areas_test.cpp pointer_test.cpp)
target_compile_definitions(areas_test PRIVATE PROGRAMS="${CMAKE_BINARY_DIR}")
target_link_libraries(areas_test PRIVATE
    mosa_wall_tool mosa_process mosa_stream_file mosa_image mosa_wall_file mosa_play_options mosa_capture_socket
    mosa_pointer GTest::gtest_main)
add_dependencies(areas_test server play mosa-wall captureProgram smallProgram)
gtest_discover_tests(areas_test PROPERTIES ${JOB_TEST} ${NO_LEAKS})

add_executable(wallTerminal_test wallTerminal_test.cpp)
target_compile_definitions(wallTerminal_test PRIVATE PROGRAMS="${CMAKE_BINARY_DIR}")
target_link_libraries(wallTerminal_test PRIVATE mosa_process util GTest::gtest_main)
add_dependencies(wallTerminal_test mosa-wall server play captureProgram smallProgram streamdump)
gtest_discover_tests(wallTerminal_test PROPERTIES ${JOB_TEST} ${NO_LEAKS})

# The hub is the overload library's, without a server around it; the stream the capture library's.
add_executable(wallNeighbours_test wallNeighbours_test.cpp captureRing_test.cpp
    ${PROJECT_SOURCE_DIR}/overload/frameLock/hub.cpp ${PROJECT_SOURCE_DIR}/capture/stream.cpp
    ${PROJECT_SOURCE_DIR}/capture/reasons.cpp)
target_link_libraries(wallNeighbours_test PRIVATE
    mosa_process mosa_capture_socket mosa_wire X11::X11 Threads::Threads GTest::gtest_main)
target_compile_definitions(wallNeighbours_test PRIVATE PROGRAMS="${CMAKE_BINARY_DIR}")
gtest_discover_tests(wallNeighbours_test PROPERTIES ${JOB_TEST} ${NO_LEAKS})
