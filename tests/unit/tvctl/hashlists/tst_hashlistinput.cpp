#include "tvctl/hashlists/hashlistinput.h"
#include "unit/tvctl/hashlists/generateddevice.h"

#include <QBuffer>
#include <QTextCodec>
#include <QtTest>

namespace
{
QByteArray readAll(HashListInput& input)
{
    QByteArray all;
    for (std::string_view text = input.read(); !text.empty(); text = input.read()) {
        all.append(text.data(), static_cast<int>(text.size()));
    }
    return all;
}

/// Gives some bytes, and then an error.
class FailingDevice : public QIODevice
{
public:
    explicit FailingDevice(QByteArray bytes) : m_bytes(std::move(bytes))
    {
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }
    bool atEnd() const override
    {
        return false;
    }

protected:
    qint64 readData(char* data, qint64 size) override
    {
        if (m_bytes.isEmpty()) {
            setErrorString(QStringLiteral("the disk is on fire"));
            return -1;
        }
        const int count = std::min(static_cast<int>(size), m_bytes.size());
        std::copy_n(m_bytes.constData(), count, data);
        m_bytes.remove(0, count);
        return count;
    }
    qint64 writeData(const char*, qint64) override
    {
        return -1;
    }

private:
    QByteArray m_bytes;
};
} // namespace

class TestHashListInput : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsText_data();
    void readsText();
    void readsLongTextWhole_data();
    void readsLongTextWhole();
    void looksAtTheBeginningFirst();
    void endsAtAZero();
    void tellsProgress();
    void canBeCancelled();
    void tellsThatReadingFailed();
};

void TestHashListInput::readsText_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("text");
    const auto hex = [](const char* digits) {
        return QByteArray::fromHex(digits);
    };

    QTest::newRow("nothing") << QByteArray() << QByteArray();
    QTest::newRow("ASCII") << QByteArray("ab\ncd") << QByteArray("ab\ncd");
    QTest::newRow("Latin-1") << QByteArray("\xE4\xF6") << QByteArray("\xE4\xF6");
    QTest::newRow("UTF-8 with a mark") << QByteArray("\xEF\xBB\xBF"
                                                     "ab")
                                       << QByteArray("ab");
    QTest::newRow("a mark alone") << QByteArray("\xEF\xBB\xBF") << QByteArray();
    QTest::newRow("UTF-16 LE with a mark") << hex("fffe 6100 e400") << QByteArray("a\xC3\xA4");
    QTest::newRow("UTF-16 BE with a mark") << hex("feff 0061 00e4") << QByteArray("a\xC3\xA4");
    QTest::newRow("UTF-16 LE without") << hex("6100 6200 6300") << QByteArray("abc");
    QTest::newRow("UTF-16 BE without") << hex("0061 0062 0063") << QByteArray("abc");
    QTest::newRow("UTF-32 with a mark") << hex("fffe0000 61000000") << QByteArray("a");
    QTest::newRow("Windows line ends") << QByteArray("a\r\nb\r\n") << QByteArray("a\nb\n");
    QTest::newRow("old line ends") << QByteArray("a\rb\r") << QByteArray("a\nb\n");
    QTest::newRow("mixed line ends") << QByteArray("a\r\rb\n\nc\r\n\r\n") << QByteArray("a\n\nb\n\nc\n\n");
}

void TestHashListInput::readsText()
{
    QFETCH(QByteArray, bytes);
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    HashListInput input(buffer);
    QTEST(readAll(input), "text");
    QCOMPARE(input.error(), QString());
}

void TestHashListInput::readsLongTextWhole_data()
{
    QTest::addColumn<QByteArray>("codec");
    QTest::newRow("UTF-8") << QByteArray("UTF-8");
    QTest::newRow("UTF-16") << QByteArray("UTF-16LE");
}

void TestHashListInput::readsLongTextWhole()
{
    QFETCH(QByteArray, codec);
    QString text;
    // Of seven letters, so that line ends and characters of several bytes lie across the ends of pieces.
    for (int i = 0; i < 60000; ++i) {
        text += QStringLiteral("%1 \u20AC\r\n").arg(i % 1000, 3);
    }
    QByteArray bytes = QTextCodec::codecForName(codec)->fromUnicode(text.constData(), text.size());
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    HashListInput input(buffer);
    QVERIFY(readAll(input) == text.remove(QLatin1Char('\r')).toUtf8());
}

void TestHashListInput::looksAtTheBeginningFirst()
{
    GeneratedDevice device("\xEF\xBB\xBF"
                           "begin\r\n",
                           "0123456789", 200000, "end");
    HashListInput input(device);
    const std::string beginning(input.beginning());
    QCOMPARE(beginning.substr(0, 16), std::string("begin\n0123456789"));
    QVERIFY(beginning.size() > 60000);
    const QByteArray all = readAll(input);
    QCOMPARE(all.size(), 6 + 200000 + 3);
    QVERIFY(all.startsWith("begin\n0123456789"));
    QVERIFY(all.endsWith("9end"));
}

void TestHashListInput::endsAtAZero()
{
    QByteArray bytes = "ab\ncdefgh";
    bytes.append('\0').append("ij");
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    HashListInput input(buffer);
    QCOMPARE(readAll(input), QByteArray("ab\ncdefgh"));
    QCOMPARE(input.error(), QStringLiteral("it holds zero bytes, so it is no text"));
}

void TestHashListInput::tellsProgress()
{
    QByteArray bytes(150000, 'x');
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    QVector<qint64> done;
    HashListInput input(buffer, [&done](qint64 bytesDone, qint64 total) {
        done.append(bytesDone);
        return total == 150000;
    });
    QCOMPARE(readAll(input).size(), 150000);
    QCOMPARE(done, QVector<qint64>({65536, 131072, 150000}));
    QVERIFY(!input.isCancelled());

    qint64 told = 0;
    GeneratedDevice pipe("", "x", 10, "");
    HashListInput sequential(pipe, [&told](qint64, qint64 total) {
        told = total;
        return true;
    });
    QCOMPARE(readAll(sequential).size(), 10);
    QCOMPARE(told, -1);
}

void TestHashListInput::canBeCancelled()
{
    GeneratedDevice device("", "x", 1000000, "");
    HashListInput input(device, [](qint64 done, qint64) { return done < 100000; });
    QCOMPARE(readAll(input).size(), 65536);
    QVERIFY(input.isCancelled());
    QVERIFY(input.read().empty());
}

void TestHashListInput::tellsThatReadingFailed()
{
    FailingDevice device("abc");
    HashListInput input(device);
    QCOMPARE(readAll(input), QByteArray("abc"));
    QCOMPARE(input.error(), QStringLiteral("the disk is on fire"));
}

QTEST_GUILESS_MAIN(TestHashListInput)
#include "tst_hashlistinput.moc"
