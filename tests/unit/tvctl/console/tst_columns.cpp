#include "tvctl/console/columns.h"

#include <QTest>

class TestColumns : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void alignsCells_data();
    void alignsCells();
};

void TestColumns::alignsCells_data()
{
    QTest::addColumn<QVector<QStringList>>("rows");
    QTest::addColumn<QStringList>("lines");
    using Rows = QVector<QStringList>;
    const auto text = [](const char* utf8) {
        return QString::fromUtf8(utf8);
    };

    QTest::newRow("none") << Rows() << QStringList();
    QTest::newRow("one cell") << Rows{{text("a")}} << QStringList{text("a")};
    QTest::newRow("columns") << Rows{{text("a"), text("b"), text("c")}, {text("long"), text("x"), text("y")}}
                             << QStringList{text("a     b  c"), text("long  x  y")};
    QTest::newRow("the last is not filled up") << Rows{{text("a"), text("b")}, {text("c"), text("longer")}}
                                               << QStringList{text("a  b"), text("c  longer")};
    QTest::newRow("empty cells at the end")
        << Rows{{text("a"), text("b"), text("c")}, {text("d"), QString(), QString()}}
        << QStringList{text("a  b  c"), text("d")};
    QTest::newRow("empty cells elsewhere")
        << Rows{{text("a"), text("b"), text("c")}, {QString(), QString(), text("d")}}
        << QStringList{text("a  b  c"), text("      d")};
    QTest::newRow("a column without anything")
        << Rows{{text("a"), QString(), text("c")}} << QStringList{text("a    c")};
    QTest::newRow("rows of different lengths") << Rows{{text("abc")}, {text("d"), text("e")}, {}}
                                               << QStringList{text("abc"), text("d    e"), QString()};
    QTest::newRow("wide letters") << Rows{{text("\xE4\xB8\xAD\xE6\x96\x87"), text("x")},
                                          {text("ab"), text("y")}}
                                  << QStringList{text("\xE4\xB8\xAD\xE6\x96\x87  x"), text("ab    y")};
    QTest::newRow("colours") << Rows{{text("\033[1;31mbad\033[0m"), text("x")}, {text("fine"), text("y")}}
                             << QStringList{text("\033[1;31mbad\033[0m   x"), text("fine  y")};
}

void TestColumns::alignsCells()
{
    QFETCH(QVector<QStringList>, rows);
    QTEST(alignColumns(rows), "lines");
}

QTEST_GUILESS_MAIN(TestColumns)
#include "tst_columns.moc"
