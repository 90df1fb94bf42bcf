# The program and its resource directory, laid out under a prefix as in the build tree.
if(SONRA_WITH_QT)
    install(TARGETS sonra RUNTIME DESTINATION bin)
endif()
