# Whole jobs: a client of bare messages beside real servers.
add_executable(jobClient jobClient.cpp)
target_link_libraries(jobClient PRIVATE mosa_settings mosa_mpi)

foreach(library checkBuffers blockUntilEnd)
    add_library(${library} MODULE ${library}.cpp)
    target_link_libraries(${library} PRIVATE mosa_settings)
    set_target_properties(${library} PROPERTIES PREFIX ""
        LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
endforeach()

add_executable(job_test jobWire_test.cpp jobStart_test.cpp jobFault_test.cpp)
target_link_libraries(job_test PRIVATE mosa_settings mosa_process GTest::gtest_main)
target_compile_definitions(job_test PRIVATE PROGRAMS="${CMAKE_BINARY_DIR}")
add_dependencies(job_test server jobClient checkBuffers blockUntilEnd recorder)
# Each job keeps every core busy; two at a time take longer than one after the other.
gtest_discover_tests(job_test PROPERTIES TIMEOUT 300 PROCESSORS 2 RESOURCE_LOCK jobs LABELS jobs
    ENVIRONMENT "ASAN_OPTIONS=detect_leaks=0")
