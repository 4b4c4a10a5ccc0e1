#include "digest/digest.h"

#include "fakelibcrypto.h"

#include <QTest>

#include <random>
#include <vector>

Q_DECLARE_METATYPE(QCryptographicHash::Algorithm)

class TestDigest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void agreesWithQt_data();
    void agreesWithQt();
    void agreesWithQtInPieces_data();
    void agreesWithQtInPieces();
    void isAcceleratedForTheThreeInUse();
    void agreesWithQtWithoutLibcrypto();

private:
    void addAlgorithms();
};

namespace
{
QByteArray randomBytes(int size)
{
    std::mt19937 random(static_cast<unsigned>(size));
    QByteArray bytes(size, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random());
    }
    return bytes;
}

QString qtHex(const QByteArray& data, QCryptographicHash::Algorithm algorithm)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, algorithm).toHex());
}
} // namespace

void TestDigest::addAlgorithms()
{
    QTest::addColumn<QCryptographicHash::Algorithm>("algorithm");
    QTest::newRow("MD4") << QCryptographicHash::Md4;
    QTest::newRow("MD5") << QCryptographicHash::Md5;
    QTest::newRow("SHA-1") << QCryptographicHash::Sha1;
    QTest::newRow("SHA-256") << QCryptographicHash::Sha256;
    QTest::newRow("SHA-512") << QCryptographicHash::Sha512;
    QTest::newRow("SHA3-256") << QCryptographicHash::Sha3_256;
}

void TestDigest::agreesWithQt_data()
{
    addAlgorithms();
}

void TestDigest::agreesWithQt()
{
    QFETCH(QCryptographicHash::Algorithm, algorithm);
    std::vector<int> sizes(300);
    for (int size = 0; size < 300; ++size) {
        sizes[static_cast<size_t>(size)] = size;
    }
    for (const int power : {512, 1024, 4096, 65536, 1 << 20}) {
        sizes.insert(sizes.end(), {power - 1, power, power + 1});
    }
    for (const int size : sizes) {
        const QByteArray data = randomBytes(size);
        Digest digest(algorithm);
        digest.add(data.constData(), static_cast<size_t>(size));
        QCOMPARE(digest.takeHex(), qtHex(data, algorithm));
    }
}

void TestDigest::agreesWithQtInPieces_data()
{
    addAlgorithms();
}

void TestDigest::agreesWithQtInPieces()
{
    QFETCH(QCryptographicHash::Algorithm, algorithm);
    std::mt19937 random(7);
    const QByteArray data = randomBytes(100000);
    for (int round = 0; round < 50; ++round) {
        Digest digest(algorithm);
        int position = 0;
        while (position < data.size()) {
            const int piece = std::min(data.size() - position, static_cast<int>(random() % 9000));
            digest.add(data.constData() + position, static_cast<size_t>(piece));
            position += piece;
        }
        QCOMPARE(digest.takeHex(), qtHex(data, algorithm));
    }
}

void TestDigest::isAcceleratedForTheThreeInUse()
{
    QVERIFY(Digest(QCryptographicHash::Md5).isAccelerated());
    QVERIFY(Digest(QCryptographicHash::Sha1).isAccelerated());
    QVERIFY(Digest(QCryptographicHash::Sha256).isAccelerated());
    QVERIFY(!Digest(QCryptographicHash::Md4).isAccelerated());
}

void TestDigest::agreesWithQtWithoutLibcrypto()
{
    const QByteArray data = randomBytes(10000);
    FakeLibcrypto::beginsNone = true;
    Digest digest(QCryptographicHash::Sha256);
    FakeLibcrypto::beginsNone = false;
    QVERIFY(!digest.isAccelerated());
    digest.add(data.constData(), static_cast<size_t>(data.size()));
    QCOMPARE(digest.takeHex(), qtHex(data, QCryptographicHash::Sha256));
}

QTEST_GUILESS_MAIN(TestDigest)
#include "tst_digest.moc"
