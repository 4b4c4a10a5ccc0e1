#pragma once

#include <QJsonValue>
#include <QString>

#include <optional>

/// What kind of value a setting has.
enum class SettingKind
{
    /// 0 or 1.
    Switch,
    /// What is done to an infected file.
    ScanAction,
    /// What is done to a file whose hash is listed.
    IocAction
};

/// The values of settings as people write and read them. Pure.
///
/// The store keeps any number as an action. Those that have a name go by it, all others as the number that
/// they are.
namespace SettingValue
{
/// Nothing for a text that is no value of this kind.
std::optional<int> parse(SettingKind kind, const QString& text);

/// The values that `parse` takes, for messages.
QString accepted(SettingKind kind);

QString toText(SettingKind kind, int value);
/// true or false, a name, or a number.
QJsonValue toJson(SettingKind kind, int value);
} // namespace SettingValue
