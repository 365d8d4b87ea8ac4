# The programs for people who run a wall.

# Processes, virtual displays and MPI jobs: for mosa-wall and the tests.
add_library(mosa_process OBJECT client/process.cpp client/virtualDisplays.cpp client/mpiJob.cpp)
target_link_libraries(mosa_process PUBLIC mosa_settings ${CMAKE_DL_LIBS})

# Streams in words.
add_library(mosa_describe OBJECT client/describe.cpp)
target_link_libraries(mosa_describe PUBLIC mosa_settings)
add_executable(streamdump client/streamdump.cpp)
target_link_libraries(streamdump PRIVATE mosa_describe mosa_stream_file CLI11::CLI11)
