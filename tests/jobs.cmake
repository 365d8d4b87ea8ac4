# Whole jobs: a client of bare messages beside real servers.
add_executable(jobClient jobClient.cpp)
target_link_libraries(jobClient PRIVATE mosa_settings mosa_mpi)

add_library(jobOverload MODULE jobOverload.cpp)
target_link_libraries(jobOverload PRIVATE mosa_settings)
set_target_properties(jobOverload PROPERTIES PREFIX ""
    LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)

add_executable(job_test jobWire_test.cpp jobStart_test.cpp jobFault_test.cpp jobLock_test.cpp)
target_link_libraries(job_test PRIVATE mosa_settings mosa_process mosa_stream_file
    GTest::gtest_main)
target_compile_definitions(job_test PRIVATE PROGRAMS="${CMAKE_BINARY_DIR}")
add_dependencies(job_test server frameLock play jobClient jobOverload recorder)
gtest_discover_tests(job_test PROPERTIES ${JOB_TEST} ${NO_LEAKS})

# The threads alone, with MPI and the decoder replaced, always under the thread sanitizer: a build with
# sanitizers need not have it again.
if(MOSA_SANITIZE)
    return()
endif()
file(GLOB SHUFFLE CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/shuffle/*.cpp)
add_executable(threads_test threads/threads_test.cpp ${SHUFFLE}
    ${PROJECT_SOURCE_DIR}/coding/serverProcess.cpp)
# In this directory's targets only.
set_source_files_properties(${PROJECT_SOURCE_DIR}/shuffle/server.cpp PROPERTIES
    COMPILE_DEFINITIONS "main=serverMain;MOSA_VERSION=\"${PROJECT_VERSION}\"")
target_include_directories(threads_test PRIVATE threads/include ${PROJECT_SOURCE_DIR}
    ${GL_INCLUDE_DIR})
target_compile_features(threads_test PRIVATE cxx_std_20)
target_compile_options(threads_test PRIVATE -Wall -Wextra -Wshadow -Wconversion -O1 -g
    -fsanitize=thread)
target_link_options(threads_test PRIVATE -fsanitize=thread -Wl,--wrap=pthread_cond_wait)
target_link_libraries(threads_test PRIVATE Threads::Threads)
mosa_budget(runs 120 10000)
math(EXPR limit "60 + ${runs}")
add_test(NAME threads.runs COMMAND threads_test ${runs})
set_tests_properties(threads.runs PROPERTIES ${IN_PROCESS_TEST} TIMEOUT ${limit}
    ENVIRONMENT "TSAN_OPTIONS=halt_on_error=1")
