# What nearly every file includes, compiled once: nlohmann/json alone takes seconds of each file that sees it. The files
# still name what they use: headers are verified without these.
option(SONRA_PRECOMPILED "Compile the headers that everybody includes once" ON)

set(COMMON_HEADERS <algorithm> <atomic> <chrono> <condition_variable> <deque> <filesystem> <fstream> <functional> <map>
    <memory> <mutex> <optional> <set> <string> <string_view> <thread> <unordered_map> <unordered_set> <variant> <vector>
    <nlohmann/json.hpp>)

# For windows and for the tests of windows.
set(QT_HEADERS <QDBusConnection> <QDBusMessage> <QFontMetricsF> <QGuiApplication> <QMenu> <QPainter> <QPainterPath> <QTimer>
    <QWidget>)

# sonra_precompiled(NAME headers...): the library sonra_precompiled_NAME has COMMON_HEADERS and these.
function(sonra_precompiled name)
    set(target sonra_precompiled_${name})
    set(source ${CMAKE_BINARY_DIR}/${target}.cpp)
    file(GENERATE OUTPUT ${source} CONTENT "")
    add_library(${target} OBJECT ${source})
    target_link_libraries(${target} PRIVATE sonra_flags nlohmann_json::nlohmann_json Threads::Threads)
    target_precompile_headers(${target} PRIVATE ${COMMON_HEADERS} ${ARGN})
    set_target_properties(${target} PROPERTIES UNITY_BUILD OFF)
endfunction()

# The same with QT_HEADERS.
function(sonra_precompiled_with_qt name)
    sonra_precompiled(${name} ${QT_HEADERS} ${ARGN})
    # Libraries that use Qt are compiled with its flags.
    target_link_libraries(sonra_precompiled_${name} PRIVATE Qt6::DBus Qt6::Widgets)
    target_compile_definitions(sonra_precompiled_${name} PRIVATE QT_NO_KEYWORDS)
endfunction()

# sonra_use_precompiled(TARGET NAME): NAME's users define what it was compiled with, whether they link it all or not.
function(sonra_use_precompiled target name)
    if(SONRA_PRECOMPILED)
        target_precompile_headers(${target} REUSE_FROM sonra_precompiled_${name})
        if(name MATCHES "qt")
            target_compile_definitions(${target} PRIVATE QT_DBUS_LIB QT_GUI_LIB QT_WIDGETS_LIB)
        endif()
    endif()
endfunction()

if(SONRA_PRECOMPILED)
    # GCC forgets here that std::string is the system's, and warns of its insides; clang-tidy looks at all without
    # precompiled headers.
    add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-array-bounds> $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
    # The compiler cache needs to be told that a precompiled header stands for its text.
    add_compile_options($<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
    add_compile_options("$<$<CXX_COMPILER_ID:Clang>:SHELL:-Xclang -fno-pch-timestamp>")
    sonra_precompiled(room)
    if(SONRA_WITH_QT)
        sonra_precompiled_with_qt(qt)
    endif()
endif()
