# Pictures of real jobs on virtual displays.
if(NOT TARGET mosa-wall)
    return()
endif()
# Sanitizers look at one picture of each program and of each feature; what the larger walls show is told
# by the builds without them.
set(FEW_WALLS "")
if(MOSA_SANITIZE)
    set(FEW_WALLS FEW_WALLS)
endif()
add_executable(pixels_test pixels_test.cpp scenes.cpp)
target_compile_definitions(pixels_test PRIVATE ${FEW_WALLS}
    PROGRAMS="${CMAKE_BINARY_DIR}" EXAMPLES="${PROJECT_SOURCE_DIR}/examples")
target_link_libraries(pixels_test PRIVATE
    mosa_image mosa_process mosa_stream_file mosa_settings GTest::gtest_main)
add_dependencies(pixels_test server play mosa-wall area)
foreach(group Recordings Scenes)
    add_test(NAME pixels.${group} COMMAND pixels_test --gtest_filter=*${group}*)
    set_tests_properties(pixels.${group} PROPERTIES ${PICTURE_TEST} ${NO_LEAKS}
        COST 310 TIMEOUT 300) # the longest before the others
endforeach()

# Damaged recordings to a real server: as many as the time allows.
add_executable(damaged damaged.cpp)
target_link_libraries(damaged PRIVATE mosa_wire mosa_process mosa_stream_file mosa_settings)
add_dependencies(damaged server play)
mosa_budget(seconds 15 3600)
math(EXPR limit "60 + 2 * ${seconds}")
add_test(NAME damaged COMMAND damaged ${CMAKE_BINARY_DIR} ${PROJECT_SOURCE_DIR}/examples ${seconds})
set_tests_properties(damaged PROPERTIES ${JOB_TEST} TIMEOUT ${limit})
