#include "kit/engine.h"

#include "common/uniquefd.h"
#include "kit/program.h"

#include <filesystem>

#include <clamav.h>
#include <fcntl.h>

namespace
{
/// Of a store that nobody has written to.
cl_scan_options scanOptions()
{
    cl_scan_options options = {};
    options.general = CL_SCAN_GENERAL_ALLMATCHES;
    options.parse = CL_SCAN_PARSE_ELF | CL_SCAN_PARSE_PE | CL_SCAN_PARSE_ARCHIVE | CL_SCAN_PARSE_HTML |
                    CL_SCAN_PARSE_OLE2 | CL_SCAN_PARSE_XMLDOCS | CL_SCAN_PARSE_SWF | CL_SCAN_PARSE_PDF;
    return options;
}

void expectSuccess(int result, const std::string& what)
{
    if (result != CL_SUCCESS) {
        Program::fail(what + ": " + cl_strerror(static_cast<cl_error_t>(result)));
    }
}
} // namespace

Engine::Engine(const std::string& databases, const std::string& temporary)
{
    expectSuccess(cl_init(CL_INIT_DEFAULT), "libclamav");
    m_engine = cl_engine_new();
    expectSuccess(cl_engine_set_num(m_engine, CL_ENGINE_DISABLE_CACHE, 1), "no cache");
    expectSuccess(cl_engine_set_str(m_engine, CL_ENGINE_TMPDIR, temporary.c_str()), temporary);
    unsigned signatures = 0;
    for (const auto& entry : std::filesystem::directory_iterator(databases)) {
        if (entry.path().extension() == ".cvd") {
            expectSuccess(cl_load(entry.path().c_str(), m_engine, &signatures, CL_DB_STDOPT), entry.path());
        }
    }
    if (signatures == 0) {
        Program::fail("no signatures in " + databases);
    }
    expectSuccess(cl_engine_compile(m_engine), "compile");
}

Engine::~Engine()
{
    cl_engine_free(m_engine);
}

bool Engine::scanFile(const std::string& path) const
{
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return file.isValid() && scanDescriptor(file.get(), path);
}

bool Engine::scanDescriptor(int file, const std::string& path) const
{
    cl_scan_options options = scanOptions();
    const char* name = nullptr;
    return isInfected(cl_scandesc_callback(file, path.c_str(), &name, nullptr, m_engine, &options, nullptr),
                      path);
}

bool Engine::scanText(const std::string& text) const
{
    cl_scan_options options = scanOptions();
    const char* name = nullptr;
    cl_fmap_t* map = cl_fmap_open_memory(text.data(), text.size());
    if (map == nullptr) {
        Program::fail("out of memory");
    }
    const int result = cl_scanmap_callback(map, nullptr, &name, nullptr, m_engine, &options, nullptr);
    cl_fmap_close(map);
    return isInfected(result, text);
}

bool Engine::isInfected(int result, const std::string& what) const
{
    if (result != CL_CLEAN && result != CL_VIRUS) {
        Program::fail(what + ": " + cl_strerror(static_cast<cl_error_t>(result)));
    }
    return result == CL_VIRUS;
}
