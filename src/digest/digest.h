#pragma once

#include <QCryptographicHash>
#include <QString>

#include <cstddef>
#include <memory>

struct evp_md_ctx_st;

/// A digest that is fed in pieces.
///
/// libcrypto computes it: it uses the processor's own instructions, several times faster than Qt's code. An
/// algorithm that libcrypto does not offer (an old one, or all of a restricted set-up but the approved
/// ones) is computed by Qt. The result is the same. Not thread-safe.
class Digest
{
public:
    explicit Digest(QCryptographicHash::Algorithm algorithm);
    ~Digest();

    void add(const char* data, size_t size);

    /// Lower-case hexadecimal. Ends the digest: nothing may be added after it.
    QString takeHex();

    /// False when libcrypto is not used for `algorithm`.
    bool isAccelerated() const;

private:
    struct FreeContext
    {
        void operator()(evp_md_ctx_st* context) const;
    };

    std::unique_ptr<evp_md_ctx_st, FreeContext> m_context;
    /// Used when there is no context.
    std::unique_ptr<QCryptographicHash> m_portable;
};
