# What is installed, in four components: game, tools, library and development. A plain installation has
# the licence once; cmake/packages.cmake gives each package its own.
set(DATA ${CMAKE_INSTALL_DATAROOTDIR})
set(GAMES ${CMAKE_INSTALL_BINDIR})
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(GAMES games)  # where distributions have them
endif()
install(FILES LICENSE DESTINATION ${DATA}/doc/tessaruvinel COMPONENT licence)

if(HAVE_GAME)
    # The launcher finds program and data from its own place, so these lie as it expects them.
    install(TARGETS Tessaruvinel DESTINATION lib/tessaruvinel COMPONENT game)
    install(DIRECTORY datas/ DESTINATION share/tessaruvinel/datas COMPONENT game
        FILES_MATCHING PATTERN "*.ham8" PATTERN "*.mp3" PATTERN "CC0-1.0.txt")
    install(PROGRAMS tools/desktop/tessaruvinel DESTINATION ${GAMES} COMPONENT game)
    install(FILES tools/desktop/games.sh DESTINATION lib/tessaruvinel COMPONENT game)
    install(FILES tools/desktop/tessaruvinel.desktop DESTINATION ${DATA}/applications COMPONENT game)
    install(FILES tools/desktop/tessaruvinel.metainfo.xml DESTINATION ${DATA}/metainfo COMPONENT game)
    install(FILES tools/desktop/tessaruvinel.6 DESTINATION ${CMAKE_INSTALL_MANDIR}/man6 COMPONENT game)
    foreach(size IN ITEMS 16 32 48 64 128 256)
        install(FILES tools/art/icons/${size}.png COMPONENT game RENAME tessaruvinel.png
            DESTINATION ${DATA}/icons/hicolor/${size}x${size}/apps)
    endforeach()
    install(FILES tools/art/icons/scalable.svg COMPONENT game RENAME tessaruvinel.svg
        DESTINATION ${DATA}/icons/hicolor/scalable/apps)
endif()
foreach(tool IN ITEMS tessplay:player tessview:viewer)
    string(REPLACE ":" ";" tool ${tool})
    list(GET tool 0 name)
    list(GET tool 1 folder)
    string(TOUPPER ${name} part)
    if(HAVE_${part})
        install(TARGETS ${name} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
        install(FILES tools/${folder}/${name}.bash DESTINATION ${DATA}/bash-completion/completions
            RENAME ${name} COMPONENT tools)
        install(FILES tools/${folder}/${name}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
            COMPONENT tools)
        install(FILES tools/${folder}/${name}.desktop DESTINATION ${DATA}/applications COMPONENT tools)
    endif()
endforeach()

set(PACKAGE_FOLDER ${CMAKE_INSTALL_LIBDIR}/cmake/Tessaruvinel)
install(TARGETS tessaruvinel EXPORT Tessaruvinel
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(TARGETS for_pictures for_sounds EXPORT Tessaruvinel)
install(EXPORT Tessaruvinel FILE TessaruvinelTargets.cmake NAMESPACE Tessaruvinel::
    DESTINATION ${PACKAGE_FOLDER} COMPONENT development)
foreach(header IN LISTS PUBLIC_HEADERS)
    get_filename_component(folder ${header} DIRECTORY)
    install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tessaruvinel/${folder}
        COMPONENT development)
endforeach()

include(CMakePackageConfigHelpers)
configure_file(cmake/TessaruvinelConfig.cmake.in TessaruvinelConfig.cmake @ONLY)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/TessaruvinelConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/TessaruvinelConfig.cmake
    ${CMAKE_BINARY_DIR}/TessaruvinelConfigVersion.cmake
    DESTINATION ${PACKAGE_FOLDER} COMPONENT development)

# pkg-config's files find the prefix from where they lie.
set(PC_FOLDER ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH PC_PREFIX /prefix/${PC_FOLDER} /prefix)
set(PC_REQUIRES "")
if(LINKS_PORTAUDIO)
    set(PC_REQUIRES portaudio-2.0)
endif()
configure_file(cmake/picture.pc.in tessaruvinel-picture.pc @ONLY)
configure_file(cmake/audio.pc.in tessaruvinel-audio.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/tessaruvinel-picture.pc ${CMAKE_BINARY_DIR}/tessaruvinel-audio.pc
    DESTINATION ${PC_FOLDER} COMPONENT development)
