// Prints how fast the three hashes are computed, as the service does it and by Qt alone.
#include "digest/digest.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <QElapsedTimer>

#include <cstdio>

int main()
{
    constexpr int pieces = 256;
    const QByteArray piece(1 << 20, 'x');
    const struct
    {
        const char* name;
        QCryptographicHash::Algorithm algorithm;
    } kinds[] = {{"MD5", QCryptographicHash::Md5},
                 {"SHA-1", QCryptographicHash::Sha1},
                 {"SHA-256", QCryptographicHash::Sha256}};
    for (const auto& kind : kinds) {
        QElapsedTimer timer;
        timer.start();
        Digest digest(kind.algorithm);
        for (int i = 0; i < pieces; ++i) {
            digest.add(piece.constData(), static_cast<size_t>(piece.size()));
        }
        const QString own = digest.takeHex();
        const qint64 ownMs = timer.restart();
        QCryptographicHash hash(kind.algorithm);
        for (int i = 0; i < pieces; ++i) {
            hash.addData(piece);
        }
        const QString qt = QString::fromLatin1(hash.result().toHex());
        std::printf("%-7s %5lld ms, by Qt %5lld ms for %d MiB\n", kind.name, static_cast<long long>(ownMs),
                    static_cast<long long>(timer.elapsed()), pieces);
        if (own != qt) {
            std::printf("the two differ\n");
            return 1;
        }
    }
    return 0;
}
