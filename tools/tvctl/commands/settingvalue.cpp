#include "tvctl/commands/settingvalue.h"

#include <QStringList>

namespace
{
/// The names of the values, from 0 on.
QStringList namesOf(SettingKind kind)
{
    switch (kind) {
    case SettingKind::ScanAction:
        return {QStringLiteral("report"), QStringLiteral("clean")};
    case SettingKind::IocAction:
        return {QStringLiteral("allow"), QStringLiteral("rename"), QStringLiteral("delete")};
    default:
        return {QStringLiteral("off"), QStringLiteral("on")};
    }
}
} // namespace

std::optional<int> SettingValue::parse(SettingKind kind, const QString& text)
{
    const int index = namesOf(kind).indexOf(text);
    if (index >= 0) {
        return index;
    }
    bool isNumber = false;
    const int number = text.toInt(&isNumber);
    return isNumber && kind != SettingKind::Switch ? std::make_optional(number) : std::nullopt;
}

QString SettingValue::accepted(SettingKind kind)
{
    const QString names = namesOf(kind).join(QStringLiteral(", "));
    return kind == SettingKind::Switch ? QStringLiteral("on or off")
                                       : names + QStringLiteral(" or another number");
}

QString SettingValue::toText(SettingKind kind, int value)
{
    return namesOf(kind).value(value, QString::number(value));
}

QJsonValue SettingValue::toJson(SettingKind kind, int value)
{
    if (kind == SettingKind::Switch) {
        return value != 0;
    }
    const QString name = namesOf(kind).value(value);
    return name.isEmpty() ? QJsonValue(value) : QJsonValue(name);
}
