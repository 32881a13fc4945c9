# Read by cpack before it makes packages.
if(CPACK_OBSTACLES)
    list(JOIN CPACK_OBSTACLES "\n  " obstacles)
    message(FATAL_ERROR "No packages are made of this build folder:\n  ${obstacles}")
endif()
find_program(shlibdeps dpkg-shlibdeps)
if(NOT shlibdeps) # cpack would make packages without dependencies
    message(FATAL_ERROR "dpkg-shlibdeps is not installed (Debian's package dpkg-dev)")
endif()
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
    execute_process(COMMAND date -u -d ${CPACK_RELEASE_DATE} +%s
                    OUTPUT_VARIABLE seconds OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    set(ENV{SOURCE_DATE_EPOCH} ${seconds})
endif()
