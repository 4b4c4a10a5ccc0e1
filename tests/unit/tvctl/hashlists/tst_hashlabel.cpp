#include "tvctl/hashlists/hashlabel.h"

#include <QtTest>

class TestHashLabel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tellsWhatANameStandsFor_data();
    void tellsWhatANameStandsFor();
};

void TestHashLabel::tellsWhatANameStandsFor_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<int>("label");
    const auto rows = [](HashLabel label, std::initializer_list<const char*> names) {
        for (const char* name : names) {
            QTest::newRow(name) << QByteArray(name) << int(label);
        }
    };
    rows(HashLabel::FileHash,
         {"md5", "MD5", "sha1", "SHA-1", "sha_1", "SHA256", "SHA-256", "'SHA-256'", "md5_hash", "sha256_hash",
          "FileHash-SHA256", "hash.md5", "file md5", "sha256sum", "MD5 Hash", "filename|sha1"});
    rows(HashLabel::Indicator, {"hash", "Hash", "file_hash", "FileHash", "indicator", "Indicator Value",
                                "value", "IOC", "checksum"});
    rows(HashLabel::Type, {"type", "Indicator type", "ioc_type", "hash_type"});
    rows(HashLabel::Other, {"imphash",
                            "SHA-512",
                            "sha384",
                            "sha224",
                            "SHA3-256",
                            "ssdeep",
                            "tlsh",
                            "ja3",
                            "ja3_md5",
                            "JARM",
                            "x509-fingerprint-sha1",
                            "pehash",
                            "authentihash",
                            "vhash",
                            "dhash",
                            "Thumbprint",
                            "UUID",
                            "serial_number",
                            "parent_sha256",
                            "hassh-md5",
                            "cdhash",
                            "crc32"});
    rows(HashLabel::None,
         {"", "name", "first_seen", "filename", "sha", "md", "signature", "comment", "dropped hash"});
    QTest::newRow("a sentence") << QByteArray(
                                       "the md5 of what was found on the second of the servers yesterday")
                                << int(HashLabel::None);
}

void TestHashLabel::tellsWhatANameStandsFor()
{
    QFETCH(QByteArray, name);
    QTEST(int(hashLabelOf(name.toStdString())), "label");
}

QTEST_GUILESS_MAIN(TestHashLabel)
#include "tst_hashlabel.moc"
