# What turns a fault in memory into a stop, in the Release builds that others run: guarded stacks, calls of
# the C library that know their buffers' sizes, tables that are read-only before main, code at random
# addresses, and jumps only to where jumps may go. tests/hardening_test.py reads it back from the binaries.
if(SANITIZE OR FUZZ OR NOT CMAKE_EXECUTABLE_FORMAT STREQUAL "ELF")
    return()
endif()
include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
check_cxx_compiler_flag(-fcf-protection HAVE_CF_PROTECTION)  # x86
check_cxx_compiler_flag(-mbranch-protection=standard HAVE_BRANCH_PROTECTION)  # arm64
set(HARD -fstack-protector-strong)
if(HAVE_CF_PROTECTION)
    list(APPEND HARD -fcf-protection)
elseif(HAVE_BRANCH_PROTECTION)
    list(APPEND HARD -mbranch-protection=standard)
endif()
# A program with one decoder should stay small: in the static library only functions with arrays of bytes
# are guarded, and what aligning jumps took pays for it. The shared library has everything.
set(SMALL -fstack-protector $<$<CXX_COMPILER_ID:GNU>:-fno-align-functions;-fno-align-jumps>)

get_property(targets DIRECTORY PROPERTY BUILDSYSTEM_TARGETS)
foreach(target IN LISTS targets)
    get_target_property(type ${target} TYPE)
    if(type MATCHES "EXECUTABLE|SHARED_LIBRARY")
        target_link_options(${target} PRIVATE $<$<CONFIG:Release>:LINKER:-z,relro,-z,now,-z,noexecstack>)
    endif()
    if(type STREQUAL "EXECUTABLE")
        set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    elseif(NOT type STREQUAL "STATIC_LIBRARY")
        continue()
    endif()
    set(flags -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
    if(NOT target IN_LIST LIBRARY_FLOORS)
        list(APPEND flags ${HARD})
    elseif(BUILD_SHARED_LIBS)
        list(APPEND flags ${HARD})
    else()
        list(APPEND flags ${SMALL})
    endif()
    if(type STREQUAL "STATIC_LIBRARY" AND NOT (BUILD_SHARED_LIBS AND target IN_LIST LIBRARY_FLOORS))
        list(APPEND flags -fPIE)  # -fPIC would look up globals of threads more slowly
    endif()
    target_compile_options(${target} PRIVATE "$<$<CONFIG:Release>:${flags}>")
endforeach()
