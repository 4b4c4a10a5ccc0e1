#include "tvctl/commands/configcommand.h"

#include "common/filename.h"
#include "tvctl/commands/servicereload.h"
#include "tvctl/commands/session.h"
#include "tvctl/commands/settingkey.h"
#include "tvctl/console/columns.h"
#include "tvctl/console/toolerror.h"
#include "tvctl/installation/storeaccess.h"

#include <QJsonObject>

#include <memory>
#include <string>
#include <vector>

namespace
{
int read(const Session& session, const SettingKey& key)
{
    const int value = storedValue(key);
    StoreAccess::confirmSettings(session.installation());
    return value;
}

ExitCode list(Session& session)
{
    session.requireSettings();
    QJsonObject settings;
    QVector<QStringList> rows;
    for (const SettingKey& key : settingKeys()) {
        const int value = read(session, key);
        const QString name = QLatin1String(key.name);
        settings.insert(name, SettingValue::toJson(key.kind(), value));
        rows += {name, SettingValue::toText(key.kind(), value), QLatin1String(key.meaning)};
    }
    Output& output = session.output();
    output.lines(alignColumns(rows));
    if (output.isJson()) {
        output.document({{QStringLiteral("settings"), settings}});
    }
    return ExitCode::Good;
}

ExitCode get(Session& session, const SettingKey& key)
{
    session.requireSettings();
    const int value = read(session, key);
    Output& output = session.output();
    output.line(SettingValue::toText(key.kind(), value));
    if (output.isJson()) {
        output.document({{QStringLiteral("key"), QLatin1String(key.name)},
                         {QStringLiteral("value"), SettingValue::toJson(key.kind(), value)}});
    }
    return ExitCode::Good;
}

ExitCode set(Session& session, const SettingKey& key, const std::string& text, bool reloads)
{
    const QString given = FileName::toText(QByteArray::fromStdString(text));
    const auto value = SettingValue::parse(key.kind(), given);
    if (!value) {
        throw ToolError(QStringLiteral("%1 cannot be \"%2\"; it takes %3")
                            .arg(QLatin1String(key.name), given, SettingValue::accepted(key.kind())));
    }
    session.requireSettings();
    const auto previous = storeValue(key, *value);
    if (!previous) {
        throw ToolError(StoreAccess::notWritten(QLatin1String(key.name)));
    }
    // Also when it was set already: the service may not have been told then.
    Output& output = session.output();
    const QString before = *previous == *value
                               ? QStringLiteral("as before")
                               : QStringLiteral("was %1").arg(SettingValue::toText(key.kind(), *previous));
    output.line(QStringLiteral("%1: %2 (%3)")
                    .arg(QLatin1String(key.name), SettingValue::toText(key.kind(), *value), before));
    QJsonObject document = {{QStringLiteral("key"), QLatin1String(key.name)},
                            {QStringLiteral("value"), SettingValue::toJson(key.kind(), *value)},
                            {QStringLiteral("previous"), SettingValue::toJson(key.kind(), *previous)}};
    const ExitCode code = ServiceReload(session, reloads).run(key.reload(), document);
    if (output.isJson()) {
        output.document(document);
    }
    return code;
}

std::vector<std::string> keyNames()
{
    std::vector<std::string> names;
    for (const SettingKey& key : settingKeys()) {
        names.emplace_back(key.name);
    }
    return names;
}

const SettingKey& keyOf(const std::string& name)
{
    // Others are refused with the command line.
    return *settingKey(QString::fromStdString(name));
}

void addList(const Command& config)
{
    config.addCommand("list", "Show all settings").setAction(list);
}

void addGet(const Command& config)
{
    const Command command = config.addCommand("get", "Print the value of a setting");
    auto name = std::make_shared<std::string>();
    command.addOption("KEY", *name, "Which setting").required().oneOf(keyNames());
    command.setAction([name](Session& session) { return get(session, keyOf(*name)); });
}

void addSet(const Command& config)
{
    struct Arguments
    {
        std::string name;
        std::string value;
        bool isWithoutReload = false;
    };
    const Command command = config.addCommand("set", "Change a setting");
    auto arguments = std::make_shared<Arguments>();
    command.addOption("KEY", arguments->name, "Which setting").required().oneOf(keyNames());
    command
        .addOption("VALUE", arguments->value,
                   "on or off; report or clean; allow, rename or delete; or the number of another action")
        .required();
    addNoReloadFlag(command, arguments->isWithoutReload);
    command.setAction([arguments](Session& session) {
        return set(session, keyOf(arguments->name), arguments->value, !arguments->isWithoutReload);
    });
}
} // namespace

void addConfigCommand(const Command& tool)
{
    const Command config = tool.addGroup("config", "Show and change the settings");
    addList(config);
    addGet(config);
    addSet(config);
}
