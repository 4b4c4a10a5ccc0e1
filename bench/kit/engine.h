#pragma once

#include <cstddef>
#include <string>

struct cl_engine;
struct cl_scan_options;

/// libclamav, set up as a new installation of the service has it, and nothing around it.
class Engine
{
public:
    /// Loads every "*.cvd" of `databases`; temporary files go into `temporary`. Ends the program on failure.
    Engine(const std::string& databases, const std::string& temporary);
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    ~Engine();

    /// Whether the file is infected. One that cannot be opened is not.
    bool scanFile(const std::string& path) const;
    bool scanDescriptor(int file, const std::string& path) const;
    bool scanText(const std::string& text) const;

private:
    bool isInfected(int result, const std::string& what) const;

    cl_engine* m_engine;
};
