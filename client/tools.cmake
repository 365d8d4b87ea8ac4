# The programs for people who run a wall.

# Processes, virtual displays and MPI jobs: for mosa-wall and the tests.
add_library(mosa_process OBJECT client/process.cpp client/virtualDisplays.cpp client/mpiJob.cpp)
target_link_libraries(mosa_process PUBLIC mosa_settings ${CMAKE_DL_LIBS})

# mosa-wall, and what it is made of but its main function: the tests use that too.
add_library(mosa_wall_tool OBJECT
    client/jobOutput.cpp client/lettering.cpp client/locations.cpp client/wallCheck.cpp client/wallCommands.cpp
    client/wallDemo.cpp client/wallDrawing.cpp client/wallLayout.cpp client/wallPattern.cpp
    client/wallRun.cpp)
target_link_libraries(mosa_wall_tool PUBLIC
    mosa_process mosa_stream_file mosa_image X11::X11 ${CMAKE_DL_LIBS})
add_executable(mosa-wall client/mosaWall.cpp coding/wallFile.cpp)
target_link_libraries(mosa-wall PRIVATE
    mosa_wall_tool mosa_process mosa_stream_file mosa_image CLI11::CLI11)

# Streams in words.
add_library(mosa_describe OBJECT client/describe.cpp)
target_link_libraries(mosa_describe PUBLIC mosa_settings)
add_executable(streamdump client/streamdump.cpp)
target_link_libraries(streamdump PRIVATE mosa_describe mosa_stream_file CLI11::CLI11)
