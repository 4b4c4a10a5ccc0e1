#include "tvctl/commands/configcommand.h"

#include "common/filename.h"
#include "tvctl/commands/servicereload.h"
#include "tvctl/commands/settingkey.h"
#include "tvctl/console/columns.h"
#include "tvctl/console/toolerror.h"
#include "tvctl/installation/storeaccess.h"

#include <CLI/CLI.hpp>

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

void addList(CLI::App& config, Action& chosen)
{
    config.add_subcommand("list", "Show all settings")->callback([&chosen] { chosen = list; });
}

void addGet(CLI::App& config, Action& chosen)
{
    CLI::App* command = config.add_subcommand("get", "Print the value of a setting");
    auto name = std::make_shared<std::string>();
    command->add_option("KEY", *name, "Which setting")->required()->check(CLI::IsMember(keyNames()));
    command->callback([name, &chosen] {
        chosen = [name](Session& session) {
            return get(session, keyOf(*name));
        };
    });
}

void addSet(CLI::App& config, Action& chosen)
{
    struct Arguments
    {
        std::string name;
        std::string value;
        bool isWithoutReload = false;
    };
    CLI::App* command = config.add_subcommand("set", "Change a setting");
    auto arguments = std::make_shared<Arguments>();
    command->add_option("KEY", arguments->name, "Which setting")
        ->required()
        ->check(CLI::IsMember(keyNames()));
    command
        ->add_option("VALUE", arguments->value,
                     "on or off; report or clean; allow, rename or delete; or the number of another action")
        ->required();
    addNoReloadFlag(*command, arguments->isWithoutReload);
    command->callback([arguments, &chosen] {
        chosen = [arguments](Session& session) {
            return set(session, keyOf(arguments->name), arguments->value, !arguments->isWithoutReload);
        };
    });
}
} // namespace

void addConfigCommand(CLI::App& tool, Action& chosen)
{
    CLI::App* config = tool.add_subcommand("config", "Show and change the settings");
    config->require_subcommand(1);
    addList(*config, chosen);
    addGet(*config, chosen);
    addSet(*config, chosen);
}
