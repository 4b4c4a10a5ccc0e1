#include "platform/tvnotify/popupinbox.h"

#include <QtTest>

#include <map>
#include <thread>
#include <vector>

class TestPopupInbox : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void keepsTheOrder();
    void keepsTheOrderAcrossTurns();
    void refusesWhenFull();
    void losesNothingBetweenThreads();
};

void TestPopupInbox::keepsTheOrder()
{
    PopupInbox inbox(3);
    std::string taken;
    QVERIFY(!inbox.take(taken));
    for (const char* text : {"a", "b", "c"}) {
        QVERIFY(inbox.put(text));
    }
    for (const char* text : {"a", "b", "c"}) {
        QVERIFY(inbox.take(taken));
        QCOMPARE(taken, std::string(text));
    }
    QVERIFY(!inbox.take(taken));
}

void TestPopupInbox::keepsTheOrderAcrossTurns()
{
    PopupInbox inbox(9);
    std::string taken;
    QVERIFY(inbox.put("a") && inbox.put("b"));
    QVERIFY(inbox.take(taken));
    QCOMPARE(taken, std::string("a"));
    QVERIFY(inbox.put("c"));
    QVERIFY(inbox.take(taken));
    QCOMPARE(taken, std::string("b"));
    QVERIFY(inbox.take(taken));
    QCOMPARE(taken, std::string("c"));
}

void TestPopupInbox::refusesWhenFull()
{
    PopupInbox inbox(2);
    std::string taken;
    QVERIFY(inbox.put("a") && inbox.put("b"));
    QVERIFY(!inbox.put("c"));
    QVERIFY(!inbox.put("d"));
    QVERIFY(inbox.take(taken));
    QVERIFY(inbox.put("e"));
    QVERIFY(!inbox.put("f"));
    QVERIFY(inbox.take(taken) && inbox.take(taken));
    QCOMPARE(taken, std::string("e"));
}

void TestPopupInbox::losesNothingBetweenThreads()
{
    constexpr int threadCount = 4;
    constexpr int each = 20000;
    PopupInbox inbox(100);
    std::vector<std::thread> threads;
    threads.reserve(threadCount);
    for (int thread = 0; thread < threadCount; ++thread) {
        threads.emplace_back([&inbox, thread] {
            for (int i = 0; i < each; ++i) {
                while (!inbox.put(std::string(1, static_cast<char>('a' + thread)) + std::to_string(i))) {
                    std::this_thread::yield();
                }
            }
        });
    }
    std::map<char, int> next;
    bool isInOrder = true;
    for (int count = 0; count < threadCount * each;) {
        std::string taken;
        if (!inbox.take(taken)) {
            std::this_thread::yield();
            continue;
        }
        // What one thread puts comes in that thread's order.
        isInOrder = isInOrder && taken.substr(1) == std::to_string(next[taken[0]]);
        ++next[taken[0]];
        ++count;
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::string taken;
    QVERIFY(!inbox.take(taken));
    QVERIFY(isInOrder);
    QCOMPARE(next.size(), std::size_t(threadCount));
}

QTEST_APPLESS_MAIN(TestPopupInbox)
#include "tst_popupinbox.moc"
