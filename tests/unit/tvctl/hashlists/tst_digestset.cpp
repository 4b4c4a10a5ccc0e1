#include "tvctl/hashlists/digestset.h"

#include <QtTest>

#include <string>

using Answer = DigestSet::Answer;

class TestDigestSet : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tellsEachHashFromAllOthers();
    void differsByASingleDigit();
    void forgetsWhatThereIsNoRoomFor();
};

void TestDigestSet::tellsEachHashFromAllOthers()
{
    DigestSet set(100);
    for (const std::size_t size : {32U, 40U, 64U}) {
        QVERIFY(set.insert(std::string(size, 'a')) == Answer::New);
        QVERIFY(set.insert(std::string(size, 'b')) == Answer::New);
        QVERIFY(set.insert(std::string(size, 'a')) == Answer::Known);
    }
}

void TestDigestSet::differsByASingleDigit()
{
    DigestSet set(10000);
    int number = 0;
    for (const std::size_t size : {32U, 40U, 64U}) {
        QVERIFY(set.insert(std::string(size, '0')) == Answer::New);
        for (std::size_t i = 0; i < size; ++i) {
            for (const char digit : std::string("123456789abcdef")) {
                std::string digits(size, '0');
                digits[i] = digit;
                QVERIFY2(set.insert(digits) == Answer::New, digits.c_str());
                ++number;
            }
        }
    }
    QCOMPARE(number, (32 + 40 + 64) * 15);
}

void TestDigestSet::forgetsWhatThereIsNoRoomFor()
{
    DigestSet set(2);
    QVERIFY(set.insert(std::string(32, 'a')) == Answer::New);
    QVERIFY(set.insert(std::string(64, 'a')) == Answer::New);
    QVERIFY(set.insert(std::string(32, 'c')) == Answer::Forgotten);
    QVERIFY(set.insert(std::string(32, 'c')) == Answer::Forgotten);
    QVERIFY(set.insert(std::string(32, 'a')) == Answer::Known);
    QVERIFY(set.insert(std::string(64, 'a')) == Answer::Known);
}

QTEST_GUILESS_MAIN(TestDigestSet)
#include "tst_digestset.moc"
