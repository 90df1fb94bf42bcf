# The program and its resource directory: below the build tree for development, below a prefix when installed, laid
# out alike, so that the program finds its resources from its own place.
set(RESOURCES ${CMAKE_BINARY_DIR}/share/sonra)
set(SCRIPTS ${PROJECT_SOURCE_DIR}/companion/tts_kokoro.py)
# What the scripts import; they look for it beside themselves.
set(MODULES tts_files.py tts_playing.py tts_stretch.py tts_voices.py)
list(TRANSFORM MODULES PREPEND ${PROJECT_SOURCE_DIR}/companion/)
set(LAUNCHERS ${PROJECT_SOURCE_DIR}/companion/uv)
# What is written in JavaScript: the control tool with the daemon, the command line and the phone's page; and cloud
# speech, which lies among the scripts.
set(COMPANION ${PROJECT_SOURCE_DIR}/companion)
set(TOOLS ${COMPANION}/ctl.js ${COMPANION}/tts)
set(SPEECH_LIBRARY places.js serviceSocket.js version.js wholeFile.js)
list(TRANSFORM SPEECH_LIBRARY PREPEND ${COMPANION}/lib/)

add_custom_target(resources ALL
    COMMAND ${CMAKE_COMMAND} -E make_directory ${RESOURCES}/scripts/lib ${RESOURCES}/bin ${RESOURCES}/cli
        ${CMAKE_BINARY_DIR}/bin
    COMMAND ${CMAKE_COMMAND} -E copy_if_different ${SCRIPTS} ${MODULES} ${COMPANION}/tts.js ${COMPANION}/package.json
        ${RESOURCES}/scripts
    COMMAND ${CMAKE_COMMAND} -E copy_directory ${COMPANION}/gemini ${RESOURCES}/scripts/gemini
    COMMAND ${CMAKE_COMMAND} -E copy_if_different ${SPEECH_LIBRARY} ${RESOURCES}/scripts/lib
    COMMAND ${CMAKE_COMMAND} -E copy_if_different ${LAUNCHERS} ${RESOURCES}/bin
    COMMAND ${CMAKE_COMMAND} -E copy_if_different ${TOOLS} ${COMPANION}/package.json ${RESOURCES}/cli
    COMMAND ${CMAKE_COMMAND} -E copy_directory ${COMPANION}/lib ${RESOURCES}/cli/lib
    COMMAND ${CMAKE_COMMAND} -E copy_directory ${COMPANION}/remote ${RESOURCES}/cli/remote
    COMMAND ${CMAKE_COMMAND} -E create_symlink ../share/sonra/cli/tts ${CMAKE_BINARY_DIR}/bin/tts
    COMMENT "Laying out share/sonra")

if(SONRA_WITH_QT)
    install(TARGETS sonra RUNTIME DESTINATION bin)
    install(PROGRAMS ${SCRIPTS} ${COMPANION}/tts.js DESTINATION share/sonra/scripts)
    install(FILES ${COMPANION}/package.json DESTINATION share/sonra/scripts)
    install(DIRECTORY ${COMPANION}/gemini DESTINATION share/sonra/scripts)
    install(FILES ${SPEECH_LIBRARY} DESTINATION share/sonra/scripts/lib)
    install(FILES ${MODULES} DESTINATION share/sonra/scripts)
    install(PROGRAMS ${LAUNCHERS} DESTINATION share/sonra/bin)
    install(PROGRAMS ${TOOLS} DESTINATION share/sonra/cli)
    install(FILES ${COMPANION}/package.json DESTINATION share/sonra/cli)
    install(DIRECTORY ${COMPANION}/lib ${COMPANION}/remote DESTINATION share/sonra/cli)
    install(CODE "
        file(MAKE_DIRECTORY \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/bin)
        file(CREATE_LINK ../share/sonra/cli/tts \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/bin/tts SYMBOLIC)")
    install(FILES ${PROJECT_SOURCE_DIR}/data/man/tts.1 DESTINATION share/man/man1)
    install(FILES ${PROJECT_SOURCE_DIR}/data/completions/tts.bash DESTINATION share/bash-completion/completions RENAME tts)
    install(FILES ${PROJECT_SOURCE_DIR}/data/completions/_tts DESTINATION share/zsh/site-functions)
    install(FILES ${PROJECT_SOURCE_DIR}/data/completions/tts.fish DESTINATION share/fish/vendor_completions.d)
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
