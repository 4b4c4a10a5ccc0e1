#pragma once

#include <QByteArray>
#include <QHash>
#include <QVector>

#include <functional>
#include <optional>

#include <clamav.h>

/// Stands in front of libclamav: records what it is asked, and fails where a test wants it to.
///
/// Linked into a test it takes the place of the functions that change or use the engine; what it is not told
/// to answer goes on to the real library. Databases that are not signed are taken, see tests/preload.
struct FakeClamav
{
    /// What a function answers instead of doing its work: `result` (null where it returns a pointer), with
    /// `error` left in errno.
    struct Failure
    {
        int result;
        int error;
    };
    struct Load
    {
        QByteArray path;
        cl_engine* engine;
        unsigned options;
    };
    struct Number
    {
        cl_engine* engine;
        int field;
        long long value;
    };
    struct Scan
    {
        const cl_engine* engine;
        cl_scan_options options;
        /// Of a file: the descriptor, its flags of both kinds, and the name that was given with it.
        int descriptor;
        int descriptorFlags;
        int statusFlags;
        QByteArray fileName;
        /// Of a text: what the map covers.
        QByteArray text;
        /// Whether any argument is given that the service does not use.
        bool hasExtras;
    };
    struct Answer
    {
        int result;
        const char* name;
    };

    /// Forgets what was recorded and lets everything through to the library.
    static void reset();

    /// By the function's name; stays until it is removed.
    static QHash<QByteArray, Failure> failures;
    /// What each scan answers; the library is not asked then.
    static std::optional<Answer> answer;
    /// Called as the named function begins.
    static std::function<void(const QByteArray&)> onCall;

    /// Names of the functions in the order of the calls.
    static QVector<QByteArray> calls;
    static QVector<unsigned> initFlags;
    static QVector<Load> loads;
    static QVector<int> loadResults;
    static QVector<Number> numbers;
    static QVector<Scan> scans;
    /// Engines that were made and not yet freed.
    static QVector<cl_engine*> engines;
    /// Frees and scans of an engine that is not alive; these never reach the library.
    static int deadEngineCalls;
    static int openMaps;
    static clcb_msg messageCallback;
};
