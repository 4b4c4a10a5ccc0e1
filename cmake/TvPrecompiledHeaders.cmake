# tv_precompile(<target> <headers>)
#
# Has the sources of a target start from headers that are parsed once, where that is switched on: a test takes most of
# its time, with the compiler and again with clang-tidy, for those of Qt. <headers> is one of the two sets below. What a
# source includes stays right without it, as the other presets see.
function(tv_precompile target headers)
    if(TVFILEMON_PRECOMPILED_HEADERS)
        set_target_properties(${target} PROPERTIES PRECOMPILE_HEADERS_REUSE_FROM ${headers})
    endif()
endfunction()

if(NOT TVFILEMON_PRECOMPILED_HEADERS)
    return()
endif()

set(standard_headers
    <algorithm> <array> <atomic> <cerrno> <chrono> <cstring> <functional> <map> <memory> <optional> <string>
    <string_view> <utility> <vector>
    <dirent.h> <fcntl.h> <poll.h> <sys/stat.h> <unistd.h>)
set(qt_headers
    <QByteArray> <QCoreApplication> <QCryptographicHash> <QDateTime> <QDir> <QFile> <QFileInfo> <QHash> <QJsonArray>
    <QJsonDocument> <QJsonObject> <QLocale> <QMap> <QRegularExpression> <QSet> <QString> <QStringList> <QThread>
    <QVector>)

file(CONFIGURE OUTPUT "${CMAKE_BINARY_DIR}/precompiled.cpp" CONTENT "")
add_library(tv_headers OBJECT "${CMAKE_BINARY_DIR}/precompiled.cpp")
target_link_libraries(tv_headers PRIVATE tv_settings Qt5::Core)
target_precompile_headers(tv_headers PRIVATE ${standard_headers} ${qt_headers})

if(TVFILEMON_TESTS)
    find_package(Qt5 5.15 REQUIRED COMPONENTS Test)
    add_library(tv_test_headers OBJECT "${CMAKE_BINARY_DIR}/precompiled.cpp")
    target_link_libraries(tv_test_headers PRIVATE tv_settings Qt5::Core Qt5::Test)
    target_precompile_headers(tv_test_headers PRIVATE ${standard_headers} <QtTest>)
endif()
