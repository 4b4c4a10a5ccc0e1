#include "digest/digest.h"

#include <QByteArray>

#include <algorithm>
#include <array>
#include <limits>

#include <openssl/evp.h>

namespace
{
/// nullptr for what libcrypto is not asked for.
const char* libcryptoNameOf(QCryptographicHash::Algorithm algorithm)
{
    switch (algorithm) {
    case QCryptographicHash::Md5:
        return "MD5";
    case QCryptographicHash::Sha1:
        return "SHA1";
    case QCryptographicHash::Sha256:
        return "SHA256";
    default:
        return nullptr;
    }
}
} // namespace

void Digest::FreeContext::operator()(evp_md_ctx_st* context) const
{
    EVP_MD_CTX_free(context);
}

Digest::Digest(QCryptographicHash::Algorithm algorithm)
{
    if (const char* name = libcryptoNameOf(algorithm)) {
        const std::unique_ptr<EVP_MD, decltype(&EVP_MD_free)> method(EVP_MD_fetch(nullptr, name, nullptr),
                                                                     &EVP_MD_free);
        m_context.reset(EVP_MD_CTX_new());
        if (method == nullptr || m_context == nullptr ||
            EVP_DigestInit_ex2(m_context.get(), method.get(), nullptr) != 1) {
            m_context.reset();
        }
    }
    if (m_context == nullptr) {
        m_portable = std::make_unique<QCryptographicHash>(algorithm);
    }
}

Digest::~Digest() = default;

bool Digest::isAccelerated() const
{
    return m_context != nullptr;
}

void Digest::add(const char* data, size_t size)
{
    if (m_context != nullptr) {
        EVP_DigestUpdate(m_context.get(), data, size);
        return;
    }
    constexpr size_t largest = std::numeric_limits<int>::max();
    while (size > 0) {
        const size_t piece = std::min(size, largest);
        m_portable->addData(data, static_cast<int>(piece));
        data += piece;
        size -= piece;
    }
}

QString Digest::takeHex()
{
    if (m_context == nullptr) {
        return QString::fromLatin1(m_portable->result().toHex());
    }
    std::array<unsigned char, EVP_MAX_MD_SIZE> result = {};
    unsigned size = 0;
    EVP_DigestFinal_ex(m_context.get(), result.data(), &size);
    const QByteArray bytes(reinterpret_cast<const char*>(result.data()), static_cast<int>(size));
    return QString::fromLatin1(bytes.toHex());
}
