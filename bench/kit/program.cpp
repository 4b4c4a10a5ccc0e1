#include "kit/program.h"

#include "common/uniquefd.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include <fcntl.h>
#include <unistd.h>

namespace Program
{
void fail(const std::string& what, int error)
{
    std::fprintf(stderr, "%s%s%s\n", what.c_str(), error == 0 ? "" : ": ",
                 error == 0 ? "" : std::strerror(error));
    std::_Exit(1);
}

void expectArguments(int argc, int count, const char* usage)
{
    if (argc != count + 1) {
        fail(std::string("usage: ") + usage);
    }
}

int64_t number(const char* text)
{
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || value < 0) {
        fail(std::string("not a number: ") + text);
    }
    return value;
}

std::string contentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string content((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (!file.is_open() || file.bad()) {
        fail(path, errno);
    }
    return content;
}

void writeFile(const std::string& path, const std::string& content)
{
    const UniqueFd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (::write(file.get(), content.data(), content.size()) != static_cast<ssize_t>(content.size())) {
        fail(path, errno);
    }
}

std::vector<std::string> linesOf(const std::string& path)
{
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    if (lines.empty()) {
        fail(path + " has no lines");
    }
    return lines;
}

void tellReady()
{
    std::puts("ready");
    std::fflush(stdout);
}
} // namespace Program
