#include "tvctl/hashlists/hashlistformat.h"

#include <QtTest>

class TestHashListFormat : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void knowsEachName();
    void refusesOtherNames();
};

void TestHashListFormat::knowsEachName()
{
    const QStringList names = hashListFormatNames();
    QCOMPARE(names.join(QLatin1Char(' ')), QStringLiteral("plain csv loki hdb hsb cdb misp stix openioc"));
    for (const QString& name : names) {
        QVERIFY2(hashListFormatOf(name), qPrintable(name));
        QCOMPARE(nameOf(*hashListFormatOf(name)),
                 name == QLatin1String("hsb") ? QStringLiteral("hdb") : name);
    }
    QVERIFY(hashListFormatOf(QStringLiteral("STIX")) == HashListFormat::Stix);
}

void TestHashListFormat::refusesOtherNames()
{
    QVERIFY(!hashListFormatOf(QString()));
    QVERIFY(!hashListFormatOf(QStringLiteral("auto")));
    QVERIFY(!hashListFormatOf(QStringLiteral("pl")));
}

QTEST_GUILESS_MAIN(TestHashListFormat)
#include "tst_hashlistformat.moc"
