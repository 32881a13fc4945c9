# Which implementation of the platform libraries the programs are linked with:
#   system   the maker's, looked for under IVRA_SDK_ROOT and in the usual places; a missing one is an error
#   virtual  simulated boards, built from platform/virtual
#   auto     the maker's when all three are found, else the virtual ones
# Targets: ivra::log, ivra::hw-c, ivra::cores-c. Results: IVRA_PLATFORM_CHOSEN, "system" or "virtual", and IVRA_RUNPATH,
# the folders in which a program finds them.
set(IVRA_PLATFORM auto CACHE STRING "Platform libraries to link with: auto, system or virtual")
set_property(CACHE IVRA_PLATFORM PROPERTY STRINGS auto system virtual)
set(IVRA_SDK_ROOT "" CACHE PATH "Folder below which the maker's libraries are installed (lib/)")

set(platform_names log hw-c cores-c)

if(IVRA_PLATFORM STREQUAL "virtual")
    set(IVRA_PLATFORM_CHOSEN virtual)
elseif(IVRA_PLATFORM STREQUAL "system" OR IVRA_PLATFORM STREQUAL "auto")
    set(missing "")
    foreach(name IN LISTS platform_names)
        # Looked up anew at every configuration: a library that came or went is noticed.
        unset(IVRA_LIBRARY_${name} CACHE)
        find_library(IVRA_LIBRARY_${name} NAMES ivra-${name} libivra-${name}.so.1
                     HINTS "${IVRA_SDK_ROOT}" PATH_SUFFIXES lib lib64 ${CMAKE_INSTALL_LIBDIR})
        if(NOT IVRA_LIBRARY_${name})
            string(APPEND missing "\n  libivra-${name}.so, libivra-${name}.so.1")
        endif()
    endforeach()
    if(NOT missing)
        set(IVRA_PLATFORM_CHOSEN system)
    elseif(IVRA_PLATFORM STREQUAL "system")
        message(FATAL_ERROR "IVRA_PLATFORM=system, but these platform libraries were not found:${missing}\n"
                "Looked in lib, lib64 and ${CMAKE_INSTALL_LIBDIR} below IVRA_SDK_ROOT (\"${IVRA_SDK_ROOT}\") "
                "and in the system's library folders.\n"
                "Set -DIVRA_SDK_ROOT=<folder>, or use -DIVRA_PLATFORM=virtual for simulated boards.")
    else()
        set(IVRA_PLATFORM_CHOSEN virtual)
    endif()
else()
    message(FATAL_ERROR "IVRA_PLATFORM is \"${IVRA_PLATFORM}\"; expected auto, system or virtual")
endif()

set(IVRA_RUNPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
if(IVRA_PLATFORM_CHOSEN STREQUAL "virtual")
    message(STATUS "Platform libraries: virtual (simulated boards)")
    add_subdirectory(platform/virtual)
else()
    message(STATUS "Platform libraries: system")
    foreach(name IN LISTS platform_names)
        message(STATUS "  ${IVRA_LIBRARY_${name}}")
        # Before libraries beside the program, which may be simulated ones of an earlier build.
        cmake_path(GET IVRA_LIBRARY_${name} PARENT_PATH folder)
        list(PREPEND IVRA_RUNPATH ${folder})
        add_library(ivra::${name} SHARED IMPORTED)
        set_target_properties(ivra::${name} PROPERTIES IMPORTED_LOCATION "${IVRA_LIBRARY_${name}}"
            INTERFACE_INCLUDE_DIRECTORIES "${PROJECT_SOURCE_DIR}/platform/include")
    endforeach()
    list(REMOVE_DUPLICATES IVRA_RUNPATH)
endif()
