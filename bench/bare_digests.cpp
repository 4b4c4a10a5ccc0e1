// Computes the three digests of files, each of which is read once.
//
//   bare_digests LIST
#include "common/uniquefd.h"
#include "kit/clock.h"
#include "kit/program.h"
#include "kit/report.h"

#include <array>
#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

namespace
{
constexpr size_t pieceSize = 1024 * 1024;

struct FreeContext
{
    void operator()(EVP_MD_CTX* context) const
    {
        EVP_MD_CTX_free(context);
    }
};

void digest(const std::string& path, std::vector<char>& piece)
{
    const std::array<const EVP_MD*, 3> kinds = {EVP_md5(), EVP_sha1(), EVP_sha256()};
    std::array<std::unique_ptr<EVP_MD_CTX, FreeContext>, 3> contexts;
    for (size_t i = 0; i < kinds.size(); ++i) {
        contexts[i].reset(EVP_MD_CTX_new());
        EVP_DigestInit_ex(contexts[i].get(), kinds[i], nullptr);
    }
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    ssize_t size = 0;
    while ((size = ::read(file.get(), piece.data(), piece.size())) > 0) {
        for (const auto& context : contexts) {
            EVP_DigestUpdate(context.get(), piece.data(), static_cast<size_t>(size));
        }
    }
    if (size < 0) {
        Program::fail(path, errno);
    }
    for (const auto& context : contexts) {
        std::array<unsigned char, EVP_MAX_MD_SIZE> result = {};
        if (EVP_DigestFinal_ex(context.get(), result.data(), nullptr) != 1) {
            Program::fail("libcrypto computes no such digest");
        }
    }
}
} // namespace

int main(int argc, char* argv[])
{
    Program::expectArguments(argc, 1, "bare_digests LIST");
    const std::vector<std::string> paths = Program::linesOf(argv[1]);
    std::vector<char> piece(pieceSize);
    const int64_t begin = nanosecondsNow();
    for (const std::string& path : paths) {
        digest(path, piece);
    }
    Report().add("whole", nanosecondsNow() - begin).print();
    return 0;
}
