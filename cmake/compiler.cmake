include(CheckLinkerFlag)
include(CheckPIESupported)

# What every file is compiled and linked with; sanitizers on request.
option(IVRA_SANITIZE "Build everything with the address and undefined-behaviour sanitizers" OFF)
option(IVRA_COVERAGE "Build src/ so that its programs count which lines run (g++)" OFF)

# Errors only where CMAKE_COMPILE_WARNING_AS_ERROR says so, as the scripts do: another compiler may know more of them.
add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow)

# A false alarm of g++ 12: at -O3 it believes that "text" + std::string could copy a text onto itself.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_GREATER_EQUAL 12
   AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    add_compile_options(-Wno-restrict)
endif()

# A source of a unity build is included by another one, so g++ takes what is in it for what is in a header.
if(CMAKE_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-subobject-linkage>)
endif()

# Log lines and traces name files as the project does, not as the machine that built it.
add_compile_options(-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)

# What nobody calls is left out: the virtual libraries share their sources, and each takes what it needs of them.
if(NOT IVRA_SANITIZE)
    add_compile_options(-ffunction-sections -fdata-sections)
    add_link_options(-Wl,--gc-sections)
endif()

# A program built once runs on any libraries of these names: LD_LIBRARY_PATH has to win, so RUNPATH, never RPATH.
add_link_options(-Wl,--enable-new-dtags)

# Hardened as Debian's programs are, and beyond that the library's own assertions.
check_pie_supported(LANGUAGES CXX)
add_compile_options(-fstack-protector-strong)
add_compile_definitions(_GLIBCXX_ASSERTIONS)
add_link_options(-Wl,-z,relro,-z,now)
# FORTIFY works where the compiler optimizes, and would hide calls from a sanitizer.
if(IVRA_SANITIZE OR CMAKE_BUILD_TYPE MATCHES "^[Dd][Ee][Bb][Uu][Gg]$")
    set(IVRA_FORTIFY OFF)
else()
    set(IVRA_FORTIFY ON)
    add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
endif()

if(IVRA_SANITIZE)
    # With the lines that a report names. Less optimized code is no faster to build.
    add_compile_options(-g1 -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        # The fuzzers are guided by the coverage of the libraries, too: by counters. A table of places in the code beside
        # them is only for reports of coverage, and would be relocated whenever a program starts.
        add_compile_options(-fsanitize=fuzzer-no-link -fno-sanitize-coverage=pc-table
                            -fsanitize-ignorelist=${PROJECT_SOURCE_DIR}/cmake/sanitizer-ignore.txt)
    endif()
endif()

# ivra_count_lines(): from here on the folder's sources count which of their lines run. Each is compiled by itself, so that
# a line has one count, and as GNU's dialect, in which counters are written before a process becomes another program.
if(IVRA_COVERAGE)
    set(IVRA_COUNT_LINES --coverage -O0 -U_FORTIFY_SOURCE)
    add_link_options(--coverage)
endif()
macro(ivra_count_lines)
    if(IVRA_COVERAGE)
        set(CMAKE_UNITY_BUILD OFF)
        set(CMAKE_CXX_EXTENSIONS ON)
        add_compile_options(${IVRA_COUNT_LINES})
    endif()
endmacro()

# ivra_carry_runtime(PROGRAM): the program brings its C++ library along, of which it takes what it needs: three quarters of
# what a start cost went into the shared one. Nothing of it is exported, so a platform library keeps the one that it was built
# with. Between the two stands an interface in C, through which no exception passes.
check_linker_flag(CXX "-static-libstdc++;-static-libgcc" IVRA_STATIC_RUNTIME)
function(ivra_carry_runtime program)
    if(IVRA_STATIC_RUNTIME AND NOT IVRA_SANITIZE)
        target_link_options(${program} PRIVATE -static-libstdc++ -static-libgcc
            -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/program.map)
    endif()
endfunction()
