#pragma once

#include "tvctl/commands/servicereload.h"
#include "tvctl/commands/settingvalue.h"

#include <QString>
#include <QVector>

#include <optional>

class ScanSetting;

/// A setting of the store under the name by which `tvctl config` knows it.
struct SettingKey
{
    enum class Place
    {
        Protection,
        ScanAction,
        ScanSwitch,
        IocEnabled,
        IocAction
    };

    const char* name;
    /// For people, in a few words.
    const char* meaning;
    Place place;
    /// Of a ScanSwitch.
    bool (ScanSetting::*get)() const = nullptr;
    void (ScanSetting::*set)(bool) = nullptr;

    SettingKind kind() const;
    /// What a running service has to read anew when it changes.
    QVector<ReloadPart> reload() const;
};

/// All of them, in the order in which they are shown.
const QVector<SettingKey>& settingKeys();

/// The one called `name`; nullptr for none.
const SettingKey* settingKey(const QString& name);

/// The stored value, or the default where nobody ever stored one. See StoreAccess::confirmSettings for when
/// the store cannot be read.
int storedValue(const SettingKey& key);

/// Stores `value` and leaves all other settings as they are, also when somebody else changes them at the same
/// time. The result is the value that was stored before; nothing when the store could not be written and is
/// as it was.
std::optional<int> storeValue(const SettingKey& key, int value);
