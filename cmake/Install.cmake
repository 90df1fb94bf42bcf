# The program and its resource directory: below the build tree for development, below a prefix when installed, laid
# out alike, so that the program finds its resources from its own place.
set(RESOURCES ${CMAKE_BINARY_DIR}/share/sonra)
set(SCRIPTS ${PROJECT_SOURCE_DIR}/companion/tts_kokoro.py)
# What the scripts import; they look for it beside themselves.
set(MODULES tts_files.py tts_playing.py tts_stretch.py tts_voices.py)
list(TRANSFORM MODULES PREPEND ${PROJECT_SOURCE_DIR}/companion/)
set(LAUNCHERS ${PROJECT_SOURCE_DIR}/companion/uv)

add_custom_target(resources ALL
    COMMAND ${CMAKE_COMMAND} -E make_directory ${RESOURCES}/scripts ${RESOURCES}/bin ${RESOURCES}/cli
    COMMAND ${CMAKE_COMMAND} -E copy_if_different ${SCRIPTS} ${MODULES} ${RESOURCES}/scripts
    COMMAND ${CMAKE_COMMAND} -E copy_if_different ${LAUNCHERS} ${RESOURCES}/bin
    COMMENT "Laying out share/sonra")

if(SONRA_WITH_QT)
    install(TARGETS sonra RUNTIME DESTINATION bin)
    install(PROGRAMS ${SCRIPTS} DESTINATION share/sonra/scripts)
    install(FILES ${MODULES} DESTINATION share/sonra/scripts)
    install(PROGRAMS ${LAUNCHERS} DESTINATION share/sonra/bin)
    install(DIRECTORY DESTINATION share/sonra/cli)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/data/icons DESTINATION share)
    set(DATA ${PROJECT_SOURCE_DIR}/data/dev.trelnivorn.sonra)
    install(FILES ${DATA}.desktop DESTINATION share/applications)
    install(FILES ${DATA}.search-provider.ini DESTINATION share/gnome-shell/search-providers)
    install(FILES ${DATA}.krunner.desktop DESTINATION share/krunner/dbusplugins
        RENAME dev.trelnivorn.sonra.desktop)
    # The bus starts programs by their whole path, and the prefix may still change when installing.
    install(CODE "
        set(SONRA_BINARY_DIRECTORY \${CMAKE_INSTALL_PREFIX}/bin)
        set(service \${CMAKE_INSTALL_PREFIX}/share/dbus-1/services/dev.trelnivorn.sonra.service)
        configure_file(${DATA}.service.in \$ENV{DESTDIR}\${service} @ONLY)")
    # Links are opened by what the cache of the desktop files names; a package's own triggers see to it elsewhere.
    install(CODE "
        find_program(UPDATE_DESKTOP_DATABASE update-desktop-database)
        if(UPDATE_DESKTOP_DATABASE AND \"\$ENV{DESTDIR}\" STREQUAL \"\")
            execute_process(COMMAND \${UPDATE_DESKTOP_DATABASE} \${CMAKE_INSTALL_PREFIX}/share/applications)
        endif()")
endif()
