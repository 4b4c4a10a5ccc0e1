#include "support/fakeclamav.h"

#include <cerrno>

#include <dlfcn.h>
#include <fcntl.h>

QHash<QByteArray, FakeClamav::Failure> FakeClamav::failures;
std::optional<FakeClamav::Answer> FakeClamav::answer;
std::function<void(const QByteArray&)> FakeClamav::onCall;
QVector<QByteArray> FakeClamav::calls;
QVector<unsigned> FakeClamav::initFlags;
QVector<FakeClamav::Load> FakeClamav::loads;
QVector<int> FakeClamav::loadResults;
QVector<FakeClamav::Number> FakeClamav::numbers;
QVector<FakeClamav::Scan> FakeClamav::scans;
QVector<cl_engine*> FakeClamav::engines;
int FakeClamav::deadEngineCalls = 0;
int FakeClamav::openMaps = 0;
clcb_msg FakeClamav::messageCallback = nullptr;

/// tests/preload/unsignedcvd.c, built under another name.
extern "C" cl_error_t load_also_unsigned(const char* path, cl_engine* engine, unsigned* count,
                                         unsigned options);

namespace
{
QHash<const void*, QByteArray> mappedTexts;

template <typename Function> Function* real(const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

/// Records the call; true when it is to fail, with the result in `result`.
bool fails(const char* name, int& result)
{
    FakeClamav::calls.append(name);
    if (FakeClamav::onCall) {
        FakeClamav::onCall(name);
    }
    const auto failure = FakeClamav::failures.constFind(name);
    if (failure == FakeClamav::failures.constEnd()) {
        return false;
    }
    result = failure->result;
    errno = failure->error;
    return true;
}

bool isAlive(const cl_engine* engine)
{
    const bool alive = FakeClamav::engines.contains(const_cast<cl_engine*>(engine));
    if (!alive) {
        ++FakeClamav::deadEngineCalls;
    }
    return alive;
}

/// True when the scan is answered here, with the result in `result`.
bool answered(const char** name, int& result)
{
    if (!FakeClamav::answer) {
        return false;
    }
    *name = FakeClamav::answer->name;
    result = FakeClamav::answer->result;
    return true;
}
} // namespace

void FakeClamav::reset()
{
    failures.clear();
    answer.reset();
    onCall = nullptr;
    calls.clear();
    initFlags.clear();
    loads.clear();
    loadResults.clear();
    numbers.clear();
    scans.clear();
    engines.clear();
    deadEngineCalls = 0;
    messageCallback = nullptr;
}

extern "C" {

void cl_set_clcb_msg(clcb_msg callback)
{
    FakeClamav::messageCallback = callback;
    static const auto next = real<decltype(cl_set_clcb_msg)>("cl_set_clcb_msg");
    next(callback);
}

cl_error_t cl_init(unsigned flags)
{
    FakeClamav::initFlags.append(flags);
    int result = 0;
    if (fails("cl_init", result)) {
        return static_cast<cl_error_t>(result);
    }
    static const auto next = real<decltype(cl_init)>("cl_init");
    return next(flags);
}

cl_engine* cl_engine_new(void)
{
    int result = 0;
    if (fails("cl_engine_new", result)) {
        return nullptr;
    }
    static const auto next = real<decltype(cl_engine_new)>("cl_engine_new");
    cl_engine* const engine = next();
    FakeClamav::engines.append(engine);
    return engine;
}

cl_error_t cl_engine_set_num(cl_engine* engine, cl_engine_field field, long long value)
{
    FakeClamav::numbers.append({engine, field, value});
    int result = 0;
    if (fails("cl_engine_set_num", result)) {
        return static_cast<cl_error_t>(result);
    }
    static const auto next = real<decltype(cl_engine_set_num)>("cl_engine_set_num");
    return next(engine, field, value);
}

cl_error_t cl_engine_free(cl_engine* engine)
{
    int result = 0;
    if (fails("cl_engine_free", result)) {
        return static_cast<cl_error_t>(result);
    }
    if (engine != nullptr && !isAlive(engine)) {
        return CL_ENULLARG;
    }
    FakeClamav::engines.removeAll(engine);
    static const auto next = real<decltype(cl_engine_free)>("cl_engine_free");
    return next(engine);
}

cl_error_t cl_load(const char* path, cl_engine* engine, unsigned* count, unsigned options)
{
    FakeClamav::loads.append({path, engine, options});
    int result = 0;
    if (!fails("cl_load", result)) {
        result = load_also_unsigned(path, engine, count, options);
    }
    FakeClamav::loadResults.append(result);
    return static_cast<cl_error_t>(result);
}

cl_error_t cl_engine_compile(cl_engine* engine)
{
    int result = 0;
    if (fails("cl_engine_compile", result)) {
        return static_cast<cl_error_t>(result);
    }
    static const auto next = real<decltype(cl_engine_compile)>("cl_engine_compile");
    return next(engine);
}

cl_error_t cl_scandesc_callback(int descriptor, const char* fileName, const char** name,
                                unsigned long* scanned, const cl_engine* engine, cl_scan_options* options,
                                void* context)
{
    FakeClamav::scans.append({engine, *options, descriptor, ::fcntl(descriptor, F_GETFD),
                              ::fcntl(descriptor, F_GETFL), fileName, QByteArray(),
                              scanned != nullptr || context != nullptr});
    int result = 0;
    if (fails("cl_scandesc_callback", result) || answered(name, result)) {
        return static_cast<cl_error_t>(result);
    }
    static const auto next = real<decltype(cl_scandesc_callback)>("cl_scandesc_callback");
    return isAlive(engine) ? next(descriptor, fileName, name, scanned, engine, options, context)
                           : CL_ENULLARG;
}

cl_fmap_t* cl_fmap_open_memory(const void* start, size_t length)
{
    int result = 0;
    if (fails("cl_fmap_open_memory", result)) {
        return nullptr;
    }
    static const auto next = real<decltype(cl_fmap_open_memory)>("cl_fmap_open_memory");
    cl_fmap_t* const map = next(start, length);
    mappedTexts.insert(map, QByteArray(static_cast<const char*>(start), static_cast<int>(length)));
    ++FakeClamav::openMaps;
    return map;
}

cl_error_t cl_scanmap_callback(cl_fmap_t* map, const char* fileName, const char** name,
                               unsigned long* scanned, const cl_engine* engine, cl_scan_options* options,
                               void* context)
{
    FakeClamav::scans.append({engine, *options, -1, 0, 0, fileName, mappedTexts.value(map),
                              scanned != nullptr || context != nullptr});
    int result = 0;
    if (fails("cl_scanmap_callback", result) || answered(name, result)) {
        return static_cast<cl_error_t>(result);
    }
    static const auto next = real<decltype(cl_scanmap_callback)>("cl_scanmap_callback");
    return isAlive(engine) ? next(map, fileName, name, scanned, engine, options, context) : CL_ENULLARG;
}

void cl_fmap_close(cl_fmap_t* map)
{
    FakeClamav::calls.append("cl_fmap_close");
    mappedTexts.remove(map);
    --FakeClamav::openMaps;
    static const auto next = real<decltype(cl_fmap_close)>("cl_fmap_close");
    next(map);
}

} // extern "C"
