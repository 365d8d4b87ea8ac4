# Fuzzing the decoder: all that decodes, without its process, its wall and its X displays, on a
# system library that only touches the memory that it is handed.
set(LEFT_OUT "(invariant|displayConfig)\\.cpp")
set(FUZZ_SEEDS ${CMAKE_CURRENT_BINARY_DIR}/seeds)
set(FUZZ_DICTIONARY ${CMAKE_CURRENT_BINARY_DIR}/opcodes.dict)
set(FUZZ_CASES ${CMAKE_CURRENT_SOURCE_DIR}/fuzz/cases)
file(GLOB EXAMPLES ${PROJECT_SOURCE_DIR}/examples/*.mws ${PROJECT_SOURCE_DIR}/examples/*.mws.gz)

add_library(fuzz_server OBJECT fuzz/standInSystem.cpp fuzz/standInMemory.cpp support/serverTables.cpp)
target_link_libraries(fuzz_server PUBLIC mosa_settings)
set(FUZZ_OBJECTS $<TARGET_OBJECTS:fuzz_server> $<TARGET_OBJECTS:mosa_wire>
    $<FILTER:$<TARGET_OBJECTS:mosa_coding>,EXCLUDE,${LEFT_OUT}>)

add_executable(writeSeeds fuzz/writeSeeds.cpp ${FUZZ_OBJECTS})
target_link_libraries(writeSeeds PRIVATE mosa_settings mosa_stream_file)
add_test(NAME fuzz.seeds COMMAND writeSeeds ${FUZZ_SEEDS} ${FUZZ_DICTIONARY} ${EXAMPLES})
set_tests_properties(fuzz.seeds PROPERTIES FIXTURES_SETUP seeds TIMEOUT 60)

# The cases that fuzzing found, and the seeds, with the project's own compiler.
add_executable(replayCases fuzz/replayCases.cpp fuzz/decoderFuzz.cpp ${FUZZ_OBJECTS})
target_link_libraries(replayCases PRIVATE mosa_settings)
add_test(NAME fuzz.cases COMMAND replayCases ${FUZZ_CASES} ${FUZZ_SEEDS})
set_tests_properties(fuzz.cases PROPERTIES FIXTURES_REQUIRED seeds TIMEOUT 300)

# The fuzz target itself needs clang 17 or later, whatever compiles the rest. It carries its own
# sanitizers, so a build with sanitizers need not have it again.
find_program(FUZZ_COMPILER NAMES clang++-19 clang++-18 clang++-17)
if(NOT FUZZ_COMPILER OR MOSA_SANITIZE)
    message(STATUS "No fuzz target: no clang 17 or later, or a build with sanitizers")
    return()
endif()
set(FUZZ_SECONDS 30 CACHE STRING "How long the test fuzz.run fuzzes")
set(FUZZ_FLAGS -std=c++20 -O1 -g -DMOSA_LIBFUZZER -DMOSA_VERSION="${PROJECT_VERSION}"
    -I${PROJECT_SOURCE_DIR} -fno-omit-frame-pointer
    # Operations are called through one table of functions without a prototype.
    -fsanitize=fuzzer,address,undefined -fno-sanitize=function -fno-sanitize-recover=all)
file(GLOB FUZZ_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/wire/*.cpp
    ${PROJECT_SOURCE_DIR}/coding/*.cpp ${PROJECT_SOURCE_DIR}/coding/server_overload/*.cpp)
list(APPEND FUZZ_SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/fuzz/decoderFuzz.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/fuzz/standInSystem.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/fuzz/standInMemory.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/support/serverTables.cpp)
list(FILTER FUZZ_SOURCES EXCLUDE REGEX ${LEFT_OUT})
set(FUZZ_CLANG_OBJECTS "")
foreach(source ${FUZZ_SOURCES})
    file(RELATIVE_PATH name ${PROJECT_SOURCE_DIR} ${source})
    string(REPLACE "/" "_" name ${name})
    set(object ${CMAKE_CURRENT_BINARY_DIR}/fuzz/${name}.o)
    add_custom_command(OUTPUT ${object}
        COMMAND ${FUZZ_COMPILER} ${FUZZ_FLAGS} -MD -MF ${object}.d -c ${source} -o ${object}
        DEPENDS ${source} DEPFILE ${object}.d COMMENT "Fuzz target: ${name}" VERBATIM)
    list(APPEND FUZZ_CLANG_OBJECTS ${object})
endforeach()
file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/fuzz)
set(FUZZ_TARGET ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/decoderFuzz)
add_custom_command(OUTPUT ${FUZZ_TARGET}
    COMMAND ${FUZZ_COMPILER} ${FUZZ_FLAGS} ${FUZZ_CLANG_OBJECTS} -o ${FUZZ_TARGET}
    DEPENDS ${FUZZ_CLANG_OBJECTS} VERBATIM)
add_custom_target(fuzz_target ALL DEPENDS ${FUZZ_TARGET})

# docs/robustness.md has the same command for an hour.
set(FUZZ_NEW ${CMAKE_CURRENT_BINARY_DIR}/corpus)
file(MAKE_DIRECTORY ${FUZZ_NEW})
add_test(NAME fuzz.run COMMAND ${FUZZ_TARGET} -max_total_time=${FUZZ_SECONDS} -max_len=8192
    -timeout=60 -malloc_limit_mb=1100 -rss_limit_mb=6000 -close_fd_mask=2 -print_final_stats=1
    -dict=${FUZZ_DICTIONARY} ${FUZZ_NEW} ${FUZZ_CASES} ${FUZZ_SEEDS})
set_tests_properties(fuzz.run PROPERTIES FIXTURES_REQUIRED seeds TIMEOUT 300
    ENVIRONMENT "ASAN_OPTIONS=allocator_may_return_null=1")
