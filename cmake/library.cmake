# The library for other programs: the floors up to pictures and sounds in one file. Each source stays
# an object of its own, so that a program links only the decoders that it calls.
set(PUBLIC_HEADERS
    extra/bytes.h extra/reason.h
    picture/bmp.h picture/charset.h picture/draw.h picture/gif.h picture/graphics.h picture/ham68.h
    picture/jpg.h picture/jpg_markers.h picture/lbm.h picture/pcx.h picture/picture.h
    picture/pixels.h picture/png.h picture/pxm.h picture/spr.h picture/tga.h picture/tif.h
    picture/tif_directory.h picture/xbm.h
    audio/aiff.h audio/au.h audio/audio_module.h audio/iff.h audio/mod.h
    audio/mod_mixer.h audio/mod_song.h audio/mp3.h
    audio/mp3_bits.h audio/mp3_filter.h audio/mp3_fixed.h audio/mp3_frame.h audio/mp3_layer3.h
    audio/mp3_stream.h audio/mp3_tags.h audio/sound_file.h audio/sound_frames.h audio/voc.h
    audio/wav.h audio/wav_adpcm.h)
set(LIBRARY_FLOORS system extra picture sounds)
if(HAVE_ENGINE)
    list(APPEND PUBLIC_HEADERS audio/audio.h)
    list(APPEND LIBRARY_FLOORS audio)
endif()

# In a shared library only what a public header declares can be seen from outside. The globals of a
# thread are found from the library's own block, one look-up a function instead of one a name.
if(BUILD_SHARED_LIBS)
    foreach(floor IN LISTS LIBRARY_FLOORS)
        set_target_properties(${floor} PROPERTIES POSITION_INDEPENDENT_CODE ON
            CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
        target_compile_options(${floor} PRIVATE -fno-semantic-interposition -ftls-model=local-dynamic)
    endforeach()
endif()

foreach(floor IN LISTS LIBRARY_FLOORS)
    list(APPEND LIBRARY_OBJECTS $<TARGET_OBJECTS:${floor}>)
endforeach()
add_library(tessaruvinel ${LIBRARY_OBJECTS})
set_target_properties(tessaruvinel PROPERTIES LINKER_LANGUAGE CXX VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR} EXPORT_NAME library)
target_compile_features(tessaruvinel INTERFACE cxx_std_20)
target_include_directories(tessaruvinel INTERFACE $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/tessaruvinel>)
if(BUILD_SHARED_LIBS)
    target_link_options(tessaruvinel PRIVATE LINKER:-Bsymbolic-functions,-z,defs)
    if(HAVE_ENGINE)
        target_link_libraries(tessaruvinel PRIVATE PkgConfig::PORTAUDIO)
    endif()
endif()

# Two names for it, since only sounds need PortAudio, and only a static library makes its users link it.
add_library(for_pictures INTERFACE)
add_library(for_sounds INTERFACE)
set_target_properties(for_pictures PROPERTIES EXPORT_NAME picture)
set_target_properties(for_sounds PROPERTIES EXPORT_NAME audio)
target_link_libraries(for_pictures INTERFACE tessaruvinel)
target_link_libraries(for_sounds INTERFACE tessaruvinel)
set(LINKS_PORTAUDIO FALSE)
if(HAVE_ENGINE AND NOT BUILD_SHARED_LIBS)
    set(LINKS_PORTAUDIO TRUE)
    target_link_libraries(for_sounds INTERFACE $<BUILD_INTERFACE:PkgConfig::PORTAUDIO>)
endif()
add_library(Tessaruvinel::picture ALIAS for_pictures)
add_library(Tessaruvinel::audio ALIAS for_sounds)
