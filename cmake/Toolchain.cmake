# The language level, the warnings and the libraries that every room may link.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

# Lines for backtraces; more takes the compiler a third of its time.
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g1 -DNDEBUG")

find_program(CCACHE ccache)
if(CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE})
endif()

# Links in a fifth of the time.
find_program(LLD ld.lld)
if(LLD)
    add_link_options(-fuse-ld=lld)
endif()

add_library(sonra_flags INTERFACE)
target_compile_options(sonra_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror -fno-omit-frame-pointer)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_compile_options(sonra_flags INTERFACE -Wthread-safety -Wreserved-identifier)
endif()
target_compile_definitions(sonra_flags INTERFACE
    SONRA_VERSION="${PROJECT_VERSION}"
    # PulseAudio's users have it; a precompiled header must be made with what its users define.
    _REENTRANT
    $<$<BOOL:${SONRA_ASSERTIONS}>:SONRA_ASSERTIONS=1>)
if(CMAKE_UNITY_BUILD)
    # What one file calls its helper is the name of a local in another; builds file by file warn of true shadows.
    target_compile_options(sonra_flags INTERFACE -Wno-shadow)
endif()
if(SONRA_SANITIZE)
    add_compile_options(-fsanitize=${SONRA_SANITIZE} -fno-sanitize-recover=all -g1 -O1)
    add_link_options(-fsanitize=${SONRA_SANITIZE})
    if(SONRA_SANITIZE MATCHES "undefined")
        # This check probes memory through a pipe and takes a process without free descriptors for a broken one.
        add_compile_options(-fno-sanitize=vptr)
    endif()
endif()

if(SONRA_FUZZ)
    # The fuzzer is guided by what it reaches in the rooms, not only in its own entry point.
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(nlohmann_json 3.11 REQUIRED)
pkg_check_modules(ICU REQUIRED IMPORTED_TARGET icu-i18n icu-uc)
pkg_check_modules(SNDFILE REQUIRED IMPORTED_TARGET sndfile)
pkg_check_modules(KISSFFT REQUIRED IMPORTED_TARGET kissfft-float)
pkg_check_modules(MD REQUIRED IMPORTED_TARGET libmd)
pkg_check_modules(PULSE REQUIRED IMPORTED_TARGET libpulse)
pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)
pkg_check_modules(SIMDJSON REQUIRED IMPORTED_TARGET simdjson)
pkg_check_modules(XCB REQUIRED IMPORTED_TARGET xcb)
if(SONRA_WITH_QT)
    find_package(Qt6 6.4 REQUIRED COMPONENTS Core DBus Gui Svg Widgets)
endif()
