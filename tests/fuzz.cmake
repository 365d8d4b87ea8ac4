# Fuzzing the decoder: all that decodes, without its process, its wall and its X displays, on a
# system library that only touches the memory that it is handed. clang 17 or later compiles it, with
# sanitizers of its own, so that a build with sanitizers need not have it again. Where there is no such
# clang, the cases that fuzzing found are replayed as the build's own compiler makes them.
option(MOSA_FUZZ "Fuzz the decoder, and replay what fuzzing found" ON)
find_program(FUZZ_COMPILER NAMES clang++-19 clang++-18 clang++-17)
if(NOT MOSA_FUZZ OR (FUZZ_COMPILER AND MOSA_SANITIZE))
    return()
endif()
set(FUZZ_SEEDS ${CMAKE_CURRENT_BINARY_DIR}/seeds)
set(FUZZ_DICTIONARY ${CMAKE_CURRENT_BINARY_DIR}/opcodes.dict)
set(FUZZ_CASES ${CMAKE_CURRENT_SOURCE_DIR}/fuzz/cases)
file(GLOB EXAMPLES ${PROJECT_SOURCE_DIR}/examples/*.mws ${PROJECT_SOURCE_DIR}/examples/*.mws.gz)

add_executable(writeSeeds fuzz/writeSeeds.cpp)
target_link_libraries(writeSeeds PRIVATE mosa_wire mosa_describe mosa_stream_file)
add_test(NAME fuzz.seeds COMMAND writeSeeds ${FUZZ_SEEDS} ${FUZZ_DICTIONARY} ${EXAMPLES})
set_tests_properties(fuzz.seeds PROPERTIES FIXTURES_SETUP seeds ${IN_PROCESS_TEST})

# The cases and the seeds, each also cut short.
set(LEFT_OUT "(invariant|displayConfig)\\.cpp")
set(REPLAY_CASES ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/replayCases)
add_test(NAME fuzz.cases COMMAND ${REPLAY_CASES} ${FUZZ_CASES} ${FUZZ_SEEDS})
set_tests_properties(fuzz.cases PROPERTIES FIXTURES_REQUIRED seeds ${IN_PROCESS_TEST} TIMEOUT 120)

set(FUZZ_OWN_SOURCES fuzz/decoderFuzz.cpp fuzz/standInSystem.cpp fuzz/standInMemory.cpp
    support/serverTables.cpp)
if(NOT FUZZ_COMPILER)
    message(STATUS "No fuzz target: no clang 17 or later")
    add_executable(replayCases fuzz/replayCases.cpp ${FUZZ_OWN_SOURCES} $<TARGET_OBJECTS:mosa_wire>
        $<FILTER:$<TARGET_OBJECTS:mosa_coding>,EXCLUDE,${LEFT_OUT}>)
    target_link_libraries(replayCases PRIVATE mosa_settings)
    return()
endif()
set(FUZZ_SANITIZERS -fsanitize=address,undefined
    # Operations are called through one table of functions without a prototype.
    -fno-sanitize=function -fno-sanitize-recover=all)
mosa_budget(optimisation -O0 -O1) # fast to compile, or to run
set(FUZZ_FLAGS -std=c++20 ${optimisation} -g1 -DMOSA_LIBFUZZER -DMOSA_VERSION="${PROJECT_VERSION}"
    -I${PROJECT_SOURCE_DIR} -fno-omit-frame-pointer ${FUZZ_SANITIZERS} -fsanitize=fuzzer-no-link)
file(GLOB FUZZ_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/wire/*.cpp
    ${PROJECT_SOURCE_DIR}/coding/*.cpp ${PROJECT_SOURCE_DIR}/coding/server_overload/*.cpp)
list(FILTER FUZZ_SOURCES EXCLUDE REGEX ${LEFT_OUT})
foreach(source ${FUZZ_OWN_SOURCES} fuzz/replayCases.cpp)
    list(APPEND FUZZ_SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/${source})
endforeach()
set(FUZZ_OBJECTS "")
foreach(source ${FUZZ_SOURCES})
    file(RELATIVE_PATH name ${PROJECT_SOURCE_DIR} ${source})
    string(REPLACE "/" "_" name ${name})
    set(object ${CMAKE_CURRENT_BINARY_DIR}/fuzz/${name}.o)
    set(own "")
    if(name MATCHES "^tests_")
        set(own -fno-sanitize=undefined) # faster to compile; it is the decoder that is looked at
    endif()
    add_custom_command(OUTPUT ${object}
        COMMAND ${FUZZ_COMPILER} ${FUZZ_FLAGS} ${own} -MD -MF ${object}.d -c ${source} -o ${object}
        DEPENDS ${source} DEPFILE ${object}.d COMMENT "Fuzz target: ${name}" VERBATIM)
    list(APPEND FUZZ_OBJECTS ${object})
endforeach()
file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/fuzz)
set(REPLAY_OBJECT ${FUZZ_OBJECTS})
list(FILTER REPLAY_OBJECT INCLUDE REGEX replayCases)
set(FUZZ_TARGET ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/decoderFuzz)
list(REMOVE_ITEM FUZZ_OBJECTS ${REPLAY_OBJECT})
add_custom_command(OUTPUT ${REPLAY_CASES}
    COMMAND ${FUZZ_COMPILER} ${FUZZ_SANITIZERS} ${FUZZ_OBJECTS} ${REPLAY_OBJECT} -o ${REPLAY_CASES}
    DEPENDS ${FUZZ_OBJECTS} ${REPLAY_OBJECT} VERBATIM)
add_custom_command(OUTPUT ${FUZZ_TARGET}
    COMMAND ${FUZZ_COMPILER} ${FUZZ_SANITIZERS} -fsanitize=fuzzer ${FUZZ_OBJECTS} -o ${FUZZ_TARGET}
    DEPENDS ${FUZZ_OBJECTS} VERBATIM)
add_custom_target(fuzz_target ALL DEPENDS ${FUZZ_TARGET} ${REPLAY_CASES})

# docs/robustness.md has the same command for an hour.
mosa_budget(seconds 15 3600)
math(EXPR limit "60 + 2 * ${seconds}")
set(FUZZ_NEW ${CMAKE_CURRENT_BINARY_DIR}/corpus)
file(MAKE_DIRECTORY ${FUZZ_NEW})
add_test(NAME fuzz.run COMMAND ${FUZZ_TARGET} -max_total_time=${seconds} -max_len=8192
    -timeout=60 -malloc_limit_mb=1100 -rss_limit_mb=6000 -close_fd_mask=2 -print_final_stats=1
    -dict=${FUZZ_DICTIONARY} ${FUZZ_NEW} ${FUZZ_CASES} ${FUZZ_SEEDS})
set_tests_properties(fuzz.run PROPERTIES FIXTURES_REQUIRED seeds ${IN_PROCESS_TEST} TIMEOUT ${limit})
set_tests_properties(fuzz.cases fuzz.run PROPERTIES
    ENVIRONMENT "ASAN_OPTIONS=allocator_may_return_null=1")
