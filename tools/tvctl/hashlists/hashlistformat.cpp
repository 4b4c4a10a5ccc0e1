#include "tvctl/hashlists/hashlistformat.h"

#include <algorithm>
#include <array>

namespace
{
struct Name
{
    const char* name;
    HashListFormat format;
};

/// Of several names the first is the usual one.
constexpr std::array<Name, 9> names = {{{"plain", HashListFormat::Plain},
                                        {"csv", HashListFormat::Csv},
                                        {"loki", HashListFormat::Loki},
                                        {"hdb", HashListFormat::Hdb},
                                        {"hsb", HashListFormat::Hdb},
                                        {"cdb", HashListFormat::Cdb},
                                        {"misp", HashListFormat::Misp},
                                        {"stix", HashListFormat::Stix},
                                        {"openioc", HashListFormat::OpenIoc}}};
} // namespace

QString nameOf(HashListFormat format)
{
    const auto found = std::find_if(names.begin(), names.end(),
                                    [format](const Name& name) { return name.format == format; });
    return QLatin1String(found->name);
}

std::optional<HashListFormat> hashListFormatOf(const QString& name)
{
    const auto found = std::find_if(names.begin(), names.end(), [&name](const Name& known) {
        return name.compare(QLatin1String(known.name), Qt::CaseInsensitive) == 0;
    });
    if (found == names.end()) {
        return std::nullopt;
    }
    return found->format;
}

QStringList hashListFormatNames()
{
    QStringList all;
    for (const Name& name : names) {
        all.append(QLatin1String(name.name));
    }
    return all;
}
