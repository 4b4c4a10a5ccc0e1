#include "tvctl/hashlists/harmlesshashes.h"

#include <QCryptographicHash>

#include <array>
#include <vector>

namespace
{
struct Harmless
{
    IOCScanConfig::HASH_TYPE type;
    std::string digits;
    QString content;
};

std::vector<Harmless> makeTable()
{
    struct Content
    {
        const char* bytes;
        const char* name;
    };
    constexpr std::array<Content, 3> contents = {
        {{"", "the empty file"}, {"\n", "a lone newline"}, {"\r\n", "a lone line end of Windows"}}};
    std::vector<Harmless> table;
    for (const Content& content : contents) {
        const auto add = [&table, &content](IOCScanConfig::HASH_TYPE type,
                                            QCryptographicHash::Algorithm algorithm) {
            const QByteArray digest = QCryptographicHash::hash(QByteArray(content.bytes), algorithm);
            table.push_back({type, digest.toHex().toStdString(), QLatin1String(content.name)});
        };
        add(IOCScanConfig::MD5, QCryptographicHash::Md5);
        add(IOCScanConfig::SHA1, QCryptographicHash::Sha1);
        add(IOCScanConfig::SHA256, QCryptographicHash::Sha256);
    }
    return table;
}
} // namespace

QString harmlessContentOf(IOCScanConfig::HASH_TYPE type, std::string_view digits)
{
    static const std::vector<Harmless> table = makeTable();
    for (const Harmless& harmless : table) {
        if (harmless.type == type && harmless.digits == digits) {
            return harmless.content;
        }
    }
    return {};
}
