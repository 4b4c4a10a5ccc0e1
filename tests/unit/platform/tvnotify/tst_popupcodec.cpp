#include "platform/tvnotify/popupcodec.h"

#include <QtTest>

#include <limits>
#include <random>

Q_DECLARE_METATYPE(std::optional<std::int64_t>)

class TestPopupCodec : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void comesBackEqual_data();
    void comesBackEqual();
    void refusesEveryCut();
    void refusesWhatIsLeftOver();
    void refusesALengthBeyondTheEnd();
    void doesNotEncodeWhatIsTooLong();
    void refusesWhatIsTooLong();
    void survivesAnyBytes();
};

namespace
{

bool isEqual(const Popup& a, const Popup& b)
{
    return a.appName == b.appName && a.iconPath == b.iconPath && a.summary == b.summary && a.body == b.body &&
           a.closeAt == b.closeAt;
}

const Popup example{"tvfilemon", "/icons/a.png", "Title", "<b>x</b>\ny", 1714567507000};

} // namespace

void TestPopupCodec::comesBackEqual_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<std::optional<std::int64_t>>("closeAt");
    using Time = std::optional<std::int64_t>;
    QTest::newRow("text") << QByteArray("body") << Time(1714567507000);
    QTest::newRow("empty") << QByteArray() << Time(0);
    QTest::newRow("no time") << QByteArray("body") << Time();
    QTest::newRow("before 1970") << QByteArray("body") << Time(-1);
    QTest::newRow("latest") << QByteArray("body") << Time(std::numeric_limits<std::int64_t>::max());
    QTest::newRow("long") << QByteArray(60000, 'x') << Time(1);
    QTest::newRow("zero bytes") << QByteArray("a\0b", 3) << Time(1);
}

void TestPopupCodec::comesBackEqual()
{
    QFETCH(QByteArray, body);
    QFETCH(std::optional<std::int64_t>, closeAt);
    const Popup popup{"name", "/icon", "summary", body.toStdString(), closeAt};
    const std::optional<Popup> decoded = decodePopup(encodePopup(popup));
    QVERIFY(decoded);
    QVERIFY(isEqual(*decoded, popup));
}

void TestPopupCodec::refusesEveryCut()
{
    const std::string datagram = encodePopup(example);
    QVERIFY(decodePopup(datagram));
    for (std::size_t size = 0; size < datagram.size(); ++size) {
        QVERIFY2(!decodePopup(datagram.substr(0, size)), std::to_string(size).c_str());
    }
}

void TestPopupCodec::refusesWhatIsLeftOver()
{
    QVERIFY(!decodePopup(encodePopup(example) + '\0'));
}

void TestPopupCodec::refusesALengthBeyondTheEnd()
{
    std::string datagram = encodePopup(example);
    datagram.replace(sizeof(std::int64_t), sizeof(std::uint32_t), sizeof(std::uint32_t), '\xff');
    QVERIFY(!decodePopup(datagram));
}

void TestPopupCodec::doesNotEncodeWhatIsTooLong()
{
    Popup popup;
    const std::size_t framing = encodePopup(popup).size();
    popup.body.assign(maximumEncodedPopup - framing, 'x');
    QCOMPARE(encodePopup(popup).size(), maximumEncodedPopup);
    popup.body += 'x';
    QVERIFY(encodePopup(popup).empty());
}

void TestPopupCodec::refusesWhatIsTooLong()
{
    Popup popup;
    popup.body.assign(maximumEncodedPopup - encodePopup(popup).size(), 'x');
    std::string datagram = encodePopup(popup);
    const auto longer = static_cast<std::uint32_t>(popup.body.size() + 1);
    datagram.replace(datagram.size() - popup.body.size() - sizeof(longer), sizeof(longer),
                     reinterpret_cast<const char*>(&longer), sizeof(longer));
    datagram += 'x';
    QVERIFY(!decodePopup(datagram));
}

void TestPopupCodec::survivesAnyBytes()
{
    std::mt19937 random(1);
    const std::string datagram = encodePopup(example);
    for (int round = 0; round < 20000; ++round) {
        std::string damaged = datagram;
        damaged[random() % damaged.size()] = static_cast<char>(random());
        damaged[random() % damaged.size()] = static_cast<char>(random());
        const std::optional<Popup> decoded = decodePopup(damaged);
        QVERIFY(!decoded || encodePopup(*decoded) == damaged);
    }
}

QTEST_APPLESS_MAIN(TestPopupCodec)
#include "tst_popupcodec.moc"
