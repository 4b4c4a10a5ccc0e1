#include "tvctl/console/progress.h"

#include "tvctl/console/textwidth.h"

#include <QTest>

#include <limits>

class TestProgress : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tells_data();
    void tells();
    void neverIsWiderThanAllowed();
    void bearsAnyNumber();
    void drawsABar();
};

void TestProgress::tells_data()
{
    QTest::addColumn<qint64>("done");
    QTest::addColumn<qint64>("total");
    QTest::addColumn<QString>("unit");
    QTest::addColumn<qint64>("elapsedMs");
    QTest::addColumn<QString>("current");
    QTest::addColumn<QString>("text");
    const auto row = [](const char* name, qint64 done, qint64 total, const char* unit, qint64 elapsedMs,
                        const char* current, const char* text) {
        QTest::newRow(name) << done << total << QString::fromLatin1(unit) << elapsedMs
                            << QString::fromUtf8(current) << QString::fromUtf8(text);
    };
    row("nothing yet", 0, 0, "files", 0, "", "0 files");
    row("just begun: no rate", 5, 0, "files", 999, "", "5 files");
    row("a rate", 2000, 0, "files", 1000, "", "2000 files  2000 files/s");
    row("the whole is known", 50, 200, "files", 500, "", " 25%  50 files");
    row("time left", 1000, 4000, "files", 10000, "", " 25%  1000 files  100 files/s  30 s left");
    row("done", 4000, 4000, "files", 10000, "", "100%  4000 files  400 files/s");
    row("more than there were", 5000, 4000, "files", 10000, "", "100%  5000 files  500 files/s");
    row("nearly done", 3999, 4000, "files", 0, "", " 99%  3999 files");
    row("what it is at", 1, 0, "files", 0, "/home/u/x", "1 files  /home/u/x");
    row("on one line", 1, 0, "files", 0, "/a\nb\033[2J", "1 files  /a\\x0ab\\x1b[2J");
    row("a long path", 1, 0, "files", 0, "/home/u/a/very/long/path/that/has/no/room/file.exe",
        "1 files  /home/u/a/very/l...no/room/file.exe");
}

void TestProgress::tells()
{
    QFETCH(qint64, done);
    QFETCH(qint64, total);
    QFETCH(QString, unit);
    QFETCH(qint64, elapsedMs);
    QFETCH(QString, current);
    QTEST(progressText(done, total, unit, elapsedMs, current, 44), "text");
}

void TestProgress::neverIsWiderThanAllowed()
{
    const QString path =
        QString::fromUtf8("/home/\xE4\xB8\xAD\xE6\x96\x87/a\xCC\x88/\xF0\x9F\x98\x80").repeated(10);
    for (int width = 0; width < 120; ++width) {
        const QString text = progressText(1234567, 9876543, QStringLiteral("files"), 5000, path, width);
        QVERIFY2(TextWidth::of(text) <= width, qPrintable(text));
        QVERIFY2(!text.endsWith(QLatin1Char(' ')), qPrintable(text));
    }
}

void TestProgress::bearsAnyNumber()
{
    constexpr qint64 most = std::numeric_limits<qint64>::max();
    const QString bytes = QStringLiteral("bytes");
    QVERIFY(progressText(most, most, bytes, 1000, {}, 80).startsWith(QStringLiteral("100%")));
    QVERIFY(progressText(most / 2, most, bytes, 1000, {}, 80).startsWith(QStringLiteral(" 50%")));
    // At this speed nobody sees the end.
    QVERIFY(progressText(1, most, bytes, most, {}, 200).endsWith(QStringLiteral("365000 days left")));
}

void TestProgress::drawsABar()
{
    QCOMPARE(progressBar(0, 10, 60), QStringLiteral("[..................]"));
    QCOMPARE(progressBar(5, 10, 60), QStringLiteral("[#########.........]"));
    QCOMPARE(progressBar(10, 10, 60), QStringLiteral("[##################]"));
    QCOMPARE(progressBar(11, 10, 60), progressBar(10, 10, 60));
    // Nobody knows the whole, and no room for it.
    QVERIFY(progressBar(5, 0, 60).isEmpty());
    QVERIFY(progressBar(5, 10, 30).isEmpty());
    for (int width = 0; width < 400; ++width) {
        QVERIFY(progressBar(1, 2, width).size() <= qMin(40, width / 3));
    }
}

QTEST_GUILESS_MAIN(TestProgress)
#include "tst_progress.moc"
