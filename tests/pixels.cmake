# Pictures of real jobs on virtual displays.
if(NOT TARGET mosa-wall)
    return()
endif()
add_executable(pixels_test pixels_test.cpp)
target_compile_definitions(pixels_test PRIVATE
    PROGRAMS="${CMAKE_BINARY_DIR}" EXAMPLES="${PROJECT_SOURCE_DIR}/examples")
target_link_libraries(pixels_test PRIVATE
    mosa_image mosa_process mosa_stream_file mosa_settings GTest::gtest_main)
add_dependencies(pixels_test server play mosa-wall)
set(environment ASAN_OPTIONS=detect_leaks=0) # MPICH's own
if(MOSA_SANITIZE)
    list(APPEND environment MOSA_TEST_SLOW=1)
endif()
foreach(group Recordings)
    add_test(NAME pixels.${group} COMMAND pixels_test --gtest_filter=*${group}*)
    set_tests_properties(pixels.${group} PROPERTIES TIMEOUT 600 ENVIRONMENT "${environment}")
endforeach()

# Damaged recordings to a real server: as many as the time allows.
add_executable(damaged damaged.cpp)
target_link_libraries(damaged PRIVATE mosa_wire mosa_process mosa_stream_file mosa_settings)
add_dependencies(damaged server play)
set(DAMAGE_SECONDS 30 CACHE STRING "How long the test damaged plays")
add_test(NAME damaged COMMAND damaged ${CMAKE_BINARY_DIR} ${PROJECT_SOURCE_DIR}/examples
    ${DAMAGE_SECONDS})
set_tests_properties(damaged PROPERTIES TIMEOUT 300 PROCESSORS 2 RESOURCE_LOCK jobs)
