#include "scan/cscanfile.h"

#include "support/fakeclamav.h"

#include <QTemporaryFile>
#include <QTest>

/// Scans during which somebody sets the clock.
class TestCScanFileClock : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void scansAgain_data();
    void scansAgain();

private:
    void setClock(int seconds)
    {
        m_clock.resize(0);
        m_clock.seek(0);
        m_clock.write(QByteArray::number(seconds));
        m_clock.flush();
    }

    QTemporaryFile m_clock;
};

Q_DECLARE_METATYPE(FakeClamav::Answer)

void TestCScanFileClock::initTestCase()
{
    QVERIFY(m_clock.open());
    // Read by the program's own look at the clock, see tests/preload.
    qputenv("TVFILEMON_CLOCK", m_clock.fileName().toLocal8Bit());
}

void TestCScanFileClock::init()
{
    FakeClamav::reset();
    QVERIFY(CScanFile::getInstance()->initEngine());
}

void TestCScanFileClock::cleanup()
{
    CScanFile::releaseInstance();
    setClock(0);
}

void TestCScanFileClock::scansAgain_data()
{
    QTest::addColumn<QVector<int>>("clock");
    QTest::addColumn<QVector<FakeClamav::Answer>>("answers");
    QTest::addColumn<int>("result");
    using Answers = QVector<FakeClamav::Answer>;
    const FakeClamav::Answer clean = {CL_CLEAN, nullptr};
    const FakeClamav::Answer tooLong = {CL_ETIMEOUT, nullptr};
    const FakeClamav::Answer found = {CL_VIRUS, "Test"};
    QTest::newRow("not set") << QVector<int>{0} << Answers{clean} << int{CL_CLEAN};
    QTest::newRow("forward") << QVector<int>{3600, 3600} << Answers{clean, found} << int{CL_VIRUS};
    QTest::newRow("forward, nothing to find")
        << QVector<int>{3600, 3600} << Answers{clean, clean} << int{CL_CLEAN};
    QTest::newRow("forward, told") << QVector<int>{3600, 3600} << Answers{tooLong, clean} << int{CL_CLEAN};
    QTest::newRow("forward, found all the same") << QVector<int>{3600} << Answers{found} << int{CL_VIRUS};
    QTest::newRow("forward again") << QVector<int>{3600, 7200} << Answers{clean, clean} << int{CL_ETIMEOUT};
    QTest::newRow("back") << QVector<int>{-3600} << Answers{clean} << int{CL_CLEAN};
}

void TestCScanFileClock::scansAgain()
{
    QFETCH(QVector<int>, clock);
    QFETCH(QVector<FakeClamav::Answer>, answers);
    QFETCH(int, result);
    int scans = 0;
    FakeClamav::onCall = [&](const QByteArray& name) {
        if (name == "cl_scanmap_callback") {
            QVERIFY(scans < clock.size());
            setClock(clock.at(scans));
            FakeClamav::answer = answers.at(scans);
            ++scans;
        }
    };
    QString virusName;
    QCOMPARE(CScanFile::getInstance()->scanUrl(QStringLiteral("text"), virusName), result);
    QCOMPARE(scans, clock.size());
    QCOMPARE(virusName, result == CL_VIRUS ? QStringLiteral("Test") : QString());
}

QTEST_GUILESS_MAIN(TestCScanFileClock)
#include "tst_cscanfile_clock.moc"
