// Tests signature databases before the service gets them.
//
//   tvdbtest verify FILE...   whether each is whole and signed; a line "VERSION BUILT" each, the second in
//                             seconds since 1970
//   tvdbtest load FILE...     whether an engine takes all of them together, as the service loads them
//
// Ends with 0 when all is well, 1 when a database is refused, 2 when it was used wrongly. Beside the service,
// because libclamav can only tell by loading, which takes the memory of a second engine.

#include <clamav.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace
{
enum Status
{
    Good,
    Refused,
    Misused
};

using Files = std::vector<std::string>;

Status refuse(const std::string& file, int code)
{
    std::fprintf(stderr, "tvdbtest: %s: %s\n", file.c_str(), cl_strerror(static_cast<cl_error_t>(code)));
    return Refused;
}

/// What libclamav says by itself repeats the result, and warns of ages that nobody asked for.
void ignoreMessage(cl_msg, const char*, const char*, void*)
{
}

Status verify(const Files& files)
{
    for (const std::string& file : files) {
        const int result = cl_cvdverify(file.c_str());
        if (result != CL_SUCCESS) {
            return refuse(file, result);
        }
        const std::unique_ptr<cl_cvd, decltype(&cl_cvdfree)> head(cl_cvdhead(file.c_str()), &cl_cvdfree);
        if (head == nullptr) {
            return refuse(file, CL_ECVD);
        }
        std::printf("%u %u\n", head->version, head->stime);
    }
    return std::fflush(stdout) == 0 ? Good : Refused;
}

Status load(const Files& files)
{
    const std::unique_ptr<cl_engine, decltype(&cl_engine_free)> engine(cl_engine_new(), &cl_engine_free);
    if (engine == nullptr) {
        return refuse("engine", CL_EMEM);
    }
    for (const std::string& file : files) {
        unsigned signatures = 0;
        const int result = cl_load(file.c_str(), engine.get(), &signatures, CL_DB_STDOPT);
        if (result != CL_SUCCESS) {
            return refuse(file, result);
        }
    }
    const int result = cl_engine_compile(engine.get());
    return result == CL_SUCCESS ? Good : refuse("engine", result);
}
} // namespace

int main(int argc, char* argv[])
{
    const std::string action = argc > 2 ? argv[1] : "";
    if (action != "verify" && action != "load") {
        std::fputs("usage: tvdbtest verify|load FILE...\n", stderr);
        return Misused;
    }
    cl_set_clcb_msg(&ignoreMessage);
    const int result = cl_init(CL_INIT_DEFAULT);
    if (result != CL_SUCCESS) {
        return refuse("libclamav", result);
    }
    const Files files(argv + 2, argv + argc);
    return action == "verify" ? verify(files) : load(files);
}
