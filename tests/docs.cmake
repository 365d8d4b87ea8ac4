# The commands of the README and the guides.
if(TARGET mosa-wall AND NOT MOSA_SANITIZE)
    add_test(NAME docs
        COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/docs.sh ${PROJECT_SOURCE_DIR} ${CMAKE_BINARY_DIR})
    set_tests_properties(docs PROPERTIES ${MACHINE_TEST} SKIP_RETURN_CODE 77)
endif()
