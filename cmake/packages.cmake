# Debian packages, one a component: cpack -G DEB in the folder of a shared build for the prefix /usr.
set(PACKAGES game:tessaruvinel tools:tessaruvinel-tools library:libtessaruvinel${PROJECT_VERSION_MAJOR}
    development:libtessaruvinel-dev)

set(CPACK_PACKAGE_NAME tessaruvinel)
set(CPACK_PACKAGE_VENDOR VELMORANDIS)
set(CPACK_PACKAGE_CONTACT "VELMORANDIS <maintainers@users.noreply.c-seed-80705cd7.example>")
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ
    GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/packaging/compress.cmake)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_GAME_DESCRIPTION "3D minesweeper on a board of turning cubes
Every change of a cell is a turn of its cube, in perspective, with music.
Fields have 2 to 64 cells a side, and each size a table of the ten best.")
set(CPACK_DEBIAN_GAME_PACKAGE_SECTION games)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "viewer for pictures and player for sounds of many formats
tessview shows PNG, JPEG, GIF, TIFF, BMP, TGA, PCX, PNM, XBM, ILBM and HAM
pictures, says what their headers hold, and converts them. tessplay does
the same for WAV, AIFF, AU, 8SVX, VOC and MP3 sounds and tracker modules.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "decoders of picture and sound formats, shared library
Any number of threads decode files or bytes in memory: pictures to RGBA
pixels, sounds to samples. Damaged files never do harm, and say what they
lack.")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${CMAKE_SOURCE_DIR}/packaging/triggers)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "decoders of picture and sound formats, for development
Headers, a CMake package and pkg-config files for libtessaruvinel.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
if(BUILD_SHARED_LIBS)
    set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
        "libtessaruvinel${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
elseif(HAVE_ENGINE)
    set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS portaudio19-dev)
endif()

set(CPACK_COMPONENTS_ALL development)
if(BUILD_SHARED_LIBS)
    list(APPEND CPACK_COMPONENTS_ALL library)
endif()
if(HAVE_GAME)
    list(APPEND CPACK_COMPONENTS_ALL game)
endif()
if(HAVE_TESSPLAY OR HAVE_TESSVIEW)
    list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
foreach(pair IN LISTS PACKAGES)
    string(REPLACE ":" ";" pair ${pair})
    list(GET pair 0 component)
    list(GET pair 1 package)
    string(TOUPPER ${component} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
    # Only in packages: a plain installation leaves these out.
    install(FILES packaging/copyright packaging/changelog COMPONENT ${component} EXCLUDE_FROM_ALL
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package})
    if(EXISTS ${CMAKE_SOURCE_DIR}/packaging/${package}.lintian)
        install(FILES packaging/${package}.lintian RENAME ${package} COMPONENT ${component}
            EXCLUDE_FROM_ALL DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides)
    endif()
endforeach()
include(CPack)
