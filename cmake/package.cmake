# Installation, and the Debian package: cmake --build build --target package.
include(GNUInstallDirs)

# Other programs are called server and play already.
foreach(program server play)
    install(PROGRAMS $<TARGET_FILE:${program}> DESTINATION ${CMAKE_INSTALL_BINDIR}
        RENAME mosa-${program})
endforeach()
install(TARGETS streamdump mosa-wall DESTINATION ${CMAKE_INSTALL_BINDIR})

# The capture library stands under the system libraries' names, in a folder where only mosa-wall looks.
install(TARGETS capture LIBRARY DESTINATION lib/mosa/capture)
foreach(library ${CAPTURE_NAMES})
    install(FILES ${CMAKE_BINARY_DIR}/capture/${library} DESTINATION lib/mosa/capture)
endforeach()

install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DATADIR}/mosa)
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR} PATTERN man EXCLUDE)
install(FILES README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
foreach(section 1 5)
    file(GLOB pages CONFIGURE_DEPENDS docs/man/*.${section})
    install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME mosa)
set(CPACK_PACKAGE_CONTACT "MOSA maintainers <maintainers@mosa.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "render server of a distributed OpenGL system for tiled walls")
string(CONCAT CPACK_PACKAGE_DESCRIPTION
    "One OpenGL window over many displays: every task of an MPI job but the first replays\n"
    "the same stream of OpenGL and GLX operations through its own OpenGL library, each onto\n"
    "its own part of the wall. With a player for recorded streams, and tools that lay out,\n"
    "check, run and picture a wall.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION x11)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS mpich) # for its mpiexec
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "libgl1, libopengl0, libegl1, libglx-mesa0, libgl1-mesa-dri, xvfb")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS xserver-xephyr)
set(CPACK_STRIP_FILES ON)
include(CPack)
