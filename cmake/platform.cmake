# Which implementation of the platform libraries the programs are linked with:
#   system   the maker's, looked for below IVRA_SDK_ROOT, or without it in the usual places; when they are not there, stubs
#            that nobody runs: the program loads the maker's wherever the loader finds them
#   virtual  simulated boards; only these have tests
# The virtual platform itself is built and installed with either.
# Targets: ivra::log, ivra::hw-c, ivra::cores-c. Results: IVRA_MAKER_FOLDERS, of the maker's libraries, and IVRA_RUNPATH,
# where programs look for these before they look where the loader does: there, but for what is packed for other hosts.
set(IVRA_PLATFORM system CACHE STRING "Platform libraries to link with: system or virtual")
set_property(CACHE IVRA_PLATFORM PROPERTY STRINGS system virtual)
set(IVRA_SDK_ROOT "" CACHE PATH "Folder below which the maker's libraries are installed (lib/)")

set(platform_names log hw-c cores-c)
set(IVRA_MAKER_FOLDERS "")
set(implementation virtual)

if(IVRA_PLATFORM STREQUAL "system")
    if(IVRA_SDK_ROOT)
        set(only_there NO_DEFAULT_PATH)
    endif()
    set(missing "")
    foreach(name IN LISTS platform_names)
        # Looked up anew at every configuration: a library that came or went is noticed.
        unset(IVRA_LIBRARY_${name} CACHE)
        find_library(IVRA_LIBRARY_${name} NAMES ivra-${name} libivra-${name}.so.1
                     HINTS ${IVRA_SDK_ROOT} PATH_SUFFIXES lib lib64 ${CMAKE_INSTALL_LIBDIR} ${only_there})
        if(NOT IVRA_LIBRARY_${name})
            string(APPEND missing "\n  libivra-${name}.so, libivra-${name}.so.1")
            continue()
        endif()
        # Every library of the virtual platform has the word in a symbol.
        file(STRINGS "${IVRA_LIBRARY_${name}}" mark REGEX "virtual_platform" LIMIT_COUNT 1)
        if(mark)
            message(FATAL_ERROR "IVRA_PLATFORM=system, but this is a library of simulated boards, not the maker's:\n"
                    "  ${IVRA_LIBRARY_${name}}\n"
                    "Remove it from there or set -DIVRA_SDK_ROOT=<folder of the maker's>, or use -DIVRA_PLATFORM=virtual.")
        endif()
    endforeach()
    if(NOT missing)
        set(implementation system)
    elseif(IVRA_SDK_ROOT)
        if(EXISTS "${IVRA_SDK_ROOT}/${IVRA_VIRTUAL_LIBDIR}")
            string(APPEND missing "\nThose in ${IVRA_VIRTUAL_LIBDIR} are libraries of simulated boards, not the maker's.")
        endif()
        message(FATAL_ERROR "These platform libraries were not found:${missing}\n"
                "Looked in lib, lib64 and ${CMAKE_INSTALL_LIBDIR} below IVRA_SDK_ROOT (\"${IVRA_SDK_ROOT}\").\n"
                "Set another IVRA_SDK_ROOT, or none to link with stubs, or use -DIVRA_PLATFORM=virtual for simulated boards.")
    else()
        set(implementation stub)
    endif()
elseif(NOT IVRA_PLATFORM STREQUAL "virtual")
    message(FATAL_ERROR "IVRA_PLATFORM is \"${IVRA_PLATFORM}\"; expected system or virtual")
endif()

add_subdirectory(platform/virtual)
if(implementation STREQUAL "stub" OR BUILD_TESTING)
    add_subdirectory(platform/stubs)
endif()

if(implementation STREQUAL "virtual")
    message(STATUS "Platform libraries: virtual (simulated boards)")
elseif(implementation STREQUAL "stub")
    message(STATUS "Platform libraries: system, not found here, so that stubs take their place while linking. Missing:${missing}")
else()
    message(STATUS "Platform libraries: system")
endif()
foreach(name IN LISTS platform_names)
    if(implementation STREQUAL "virtual")
        add_library(ivra::${name} ALIAS ${name})
    elseif(implementation STREQUAL "stub")
        add_library(ivra::${name} ALIAS stub-${name})
    else()
        message(STATUS "  ${IVRA_LIBRARY_${name}}")
        cmake_path(GET IVRA_LIBRARY_${name} PARENT_PATH folder)
        list(APPEND IVRA_MAKER_FOLDERS ${folder})
        add_library(ivra::${name} SHARED IMPORTED)
        set_target_properties(ivra::${name} PROPERTIES IMPORTED_LOCATION "${IVRA_LIBRARY_${name}}"
            INTERFACE_INCLUDE_DIRECTORIES "${PROJECT_SOURCE_DIR}/platform/include")
    endif()
endforeach()
list(REMOVE_DUPLICATES IVRA_MAKER_FOLDERS)
set(IVRA_RUNPATH ${IVRA_MAKER_FOLDERS})
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(IVRA_RUNPATH "")
endif()
