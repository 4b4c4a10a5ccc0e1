#include "tvctl/commands/settingvalue.h"

#include "tvctl/commands/settingkey.h"

#include <QSet>
#include <QTest>

#include <climits>

Q_DECLARE_METATYPE(SettingKind)

namespace
{
constexpr int none = -1000;
} // namespace

class TestSettingValue : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void parses_data();
    void parses();
    void shows_data();
    void shows();
    void parsesWhatItShows();
    void namesEachSettingOnce();
};

void TestSettingValue::parses_data()
{
    QTest::addColumn<SettingKind>("kind");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("value");
    const auto row = [](SettingKind kind, const char* text, int value) {
        QTest::addRow("%d \"%s\"", static_cast<int>(kind), text)
            << kind << QString::fromLatin1(text) << value;
    };
    row(SettingKind::Switch, "on", 1);
    row(SettingKind::Switch, "off", 0);
    for (const char* other : {"", "ON", "1", "0", "true", "on ", " on", "onn"}) {
        row(SettingKind::Switch, other, none);
    }
    row(SettingKind::ScanAction, "report", 0);
    row(SettingKind::ScanAction, "clean", 1);
    row(SettingKind::ScanAction, "2", 2);
    row(SettingKind::ScanAction, "-1", -1);
    row(SettingKind::ScanAction, "2147483647", INT_MAX);
    row(SettingKind::ScanAction, "-2147483648", INT_MIN);
    for (const char* other : {"", "Report", "allow", "on", "2147483648", "1.0", "0x1", "1 2"}) {
        row(SettingKind::ScanAction, other, none);
    }
    row(SettingKind::IocAction, "allow", 0);
    row(SettingKind::IocAction, "rename", 1);
    row(SettingKind::IocAction, "delete", 2);
    row(SettingKind::IocAction, "3", 3);
    row(SettingKind::IocAction, "clean", none);
}

void TestSettingValue::parses()
{
    QFETCH(SettingKind, kind);
    QFETCH(QString, text);
    QTEST(SettingValue::parse(kind, text).value_or(none), "value");
}

void TestSettingValue::shows_data()
{
    QTest::addColumn<SettingKind>("kind");
    QTest::addColumn<int>("value");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QJsonValue>("json");
    const auto text = [](const char* name) {
        return QString::fromLatin1(name);
    };
    const auto row = [&text](SettingKind kind, int value, const char* name) {
        QTest::addRow("%d %d", static_cast<int>(kind), value)
            << kind << value << text(name) << QJsonValue(text(name));
    };
    QTest::newRow("on") << SettingKind::Switch << 1 << text("on") << QJsonValue(true);
    QTest::newRow("off") << SettingKind::Switch << 0 << text("off") << QJsonValue(false);
    row(SettingKind::ScanAction, 0, "report");
    row(SettingKind::ScanAction, 1, "clean");
    row(SettingKind::IocAction, 0, "allow");
    row(SettingKind::IocAction, 1, "rename");
    row(SettingKind::IocAction, 2, "delete");
    QTest::newRow("scan 2") << SettingKind::ScanAction << 2 << text("2") << QJsonValue(2);
    QTest::newRow("scan -1") << SettingKind::ScanAction << -1 << text("-1") << QJsonValue(-1);
    QTest::newRow("ioc 3") << SettingKind::IocAction << 3 << text("3") << QJsonValue(3);
    QTest::newRow("ioc lowest") << SettingKind::IocAction << INT_MIN << text("-2147483648")
                                << QJsonValue(INT_MIN);
}

void TestSettingValue::shows()
{
    QFETCH(SettingKind, kind);
    QFETCH(int, value);
    QTEST(SettingValue::toText(kind, value), "text");
    QTEST(SettingValue::toJson(kind, value), "json");
}

void TestSettingValue::parsesWhatItShows()
{
    for (int value = -5; value < 6; ++value) {
        for (const SettingKind kind : {SettingKind::ScanAction, SettingKind::IocAction}) {
            QCOMPARE(SettingValue::parse(kind, SettingValue::toText(kind, value)), std::make_optional(value));
        }
    }
}

void TestSettingValue::namesEachSettingOnce()
{
    QSet<QString> names;
    for (const SettingKey& key : settingKeys()) {
        const QString name = QLatin1String(key.name);
        names.insert(name);
        QCOMPARE(settingKey(name), &key);
    }
    QCOMPARE(names.size(), 14);
    QCOMPARE(settingKey(QStringLiteral("scan")), nullptr);
}

QTEST_GUILESS_MAIN(TestSettingValue)
#include "tst_settingvalue.moc"
