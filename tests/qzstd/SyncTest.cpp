//===- tests/qzstd/SyncTest.cpp - Mutexes, spin locks, events, once, TLS --===//
//
// The lock wrappers are checked from a second thread where ownership is the
// point. No test sleeps: waits are either bounded or woken by a Fire from
// another thread.
//
//===----------------------------------------------------------------------===//
#include "FaultCollector.h"

#include "qzstd/Event.h"
#include "qzstd/Mutex.h"
#include "qzstd/ThreadLocalStorage.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

namespace {

using namespace qzs::qzlib::MultiThreading;

// Whether another thread can take `lock` right now (it releases it at once).
template <typename Lock> bool takenElsewhere(Lock& lock) {
    return std::async(std::launch::async, [&lock] {
               if (!lock.TryLock())
                   return false;
               lock.Unlock();
               return true;
           })
        .get();
}

TEST(SyncTest, RecursiveMutexNeedsAsManyUnlocks) {
    // A recursive mutex locked twice stays held until the second Unlock.
    qztest::FaultCollector faults;
    Mutex m;
    m.Lock();
    EXPECT_TRUE(m.TryLock());
    EXPECT_FALSE(takenElsewhere(m));
    m.Unlock();
    EXPECT_FALSE(takenElsewhere(m));
    m.Unlock();
    EXPECT_TRUE(takenElsewhere(m));
    EXPECT_EQ(faults.count(), 0u);
}

TEST(SyncTest, ErrorCheckMutexFailures) {
    // TryLock by the holder is a quiet false; a relock or a foreign unlock is reported and survived.
    qztest::FaultCollector faults;
    Mutex m(Mutex::ErrorCheck);
    m.Lock();
    EXPECT_FALSE(m.TryLock());
    EXPECT_EQ(faults.count(), 0u);

    m.Lock();
    ASSERT_EQ(faults.count(), 1u);
    EXPECT_EQ(faults.faults()[0].number, 542u);
    EXPECT_EQ(faults.faults()[0].arguments.rfind(std::to_string(EDEADLK) + ", ", 0), 0u);
    m.Unlock();
    EXPECT_TRUE(takenElsewhere(m));

#ifndef __SANITIZE_THREAD__ // ThreadSanitizer stops at the unlock of an unheld mutex itself
    m.Unlock();
    ASSERT_EQ(faults.count(), 2u);
    EXPECT_EQ(faults.faults()[1].number, 542u);
    EXPECT_EQ(faults.faults()[1].arguments.rfind(std::to_string(EPERM) + ", ", 0), 0u);
#endif
}

TEST(SyncTest, SpinlockAndScopedLock) {
    // A held spin lock refuses others; the guard releases the right kind once.
    Spinlock s;
    {
        ScopedLock guard(s);
        EXPECT_FALSE(takenElsewhere(s));
    }
    EXPECT_TRUE(takenElsewhere(s));

    Mutex m;
    {
        ScopedLock guard(&m);
        EXPECT_FALSE(takenElsewhere(m));
        guard.unlock();
        EXPECT_TRUE(takenElsewhere(m));
    }
    EXPECT_TRUE(takenElsewhere(m));
    ScopedLock none(static_cast<Mutex*>(nullptr));
}

TEST(SyncTest, FastMutexIsRecursiveAndExcludesOthers) {
    // Held twice, it stays held until the second Unlock; a foreign Unlock
    // changes nothing; the guard releases it.
    FastMutex f;
    f.Lock();
    EXPECT_TRUE(f.TryLock());
    EXPECT_FALSE(takenElsewhere(f));
    std::async(std::launch::async, [&f] { f.Unlock(); }).get();
    f.Unlock();
    EXPECT_FALSE(takenElsewhere(f));
    f.Unlock();
    EXPECT_TRUE(takenElsewhere(f));
    {
        ScopedLock guard(f);
        EXPECT_FALSE(takenElsewhere(f));
    }
    EXPECT_TRUE(takenElsewhere(f));
}

TEST(SyncTest, FastMutexUnderContentionLosesNoUpdate) {
    // Four threads add to a plain counter under the lock, nested once, long
    // enough to make waiters sleep and be woken.
    FastMutex f;
    long counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                ScopedLock outer(f);
                ScopedLock inner(f);
                ++counter;
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(counter, 80000);
    EXPECT_TRUE(takenElsewhere(f));
}

TEST(SyncTest, BiasedLockOwnerAndOthersLoseNoUpdate) {
    // The owner's sections (plain stores) and two other threads (Lock, nested
    // once) add to one plain counter. A missing barrier or a wrong wait shows
    // as a lost update here, or as a race under ThreadSanitizer.
    BiasedLock lock;
    long counter = 0;
    std::atomic<bool> ownerDone{false};
    std::promise<void> ownerNamed;
    std::thread owner([&] {
        lock.setOwner(pthread_self());
        ownerNamed.set_value();
        for (int i = 0; i < 200000; ++i) {
            lock.ownerLock();
            counter += 1;
            lock.ownerUnlock();
        }
        ownerDone = true;
    });
    ownerNamed.get_future().wait(); // the owner is named before others look
    std::vector<std::thread> others;
    for (int t = 0; t < 2; ++t)
        others.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                ScopedLock outer(lock);
                ScopedLock inner(lock);
                counter += 1000;
            }
        });
    for (auto& t : others)
        t.join();
    owner.join();
    EXPECT_TRUE(ownerDone);
    EXPECT_EQ(counter, 200000 + 2 * 2000 * 1000);
}

TEST(SyncTest, BiasedLockOwnerMayTakeItFromOutsideInsideItsSection) {
    // A flush reached from inside the owner's own section must not wait for
    // that section; held from outside by the owner, it still keeps others out.
    BiasedLock lock;
    lock.setOwner(pthread_self());
    lock.ownerLock();
    lock.Lock(); // returns: the section it would wait for is the caller's
    lock.Unlock();
    lock.ownerUnlock();

    std::atomic<bool> taken{false};
    lock.Lock(); // the owner, outside its section
    std::thread other([&] {
        ScopedLock guard(lock);
        taken = true;
    });
    lock.ownerLock(); // a section while it holds the lock from outside: no wait
    lock.ownerUnlock();
    EXPECT_FALSE(taken);
    lock.Unlock();
    other.join();
    EXPECT_TRUE(taken);
}

TEST(SyncTest, AdaptiveLockFavoursOneThreadUntilASecondComes) {
    // One thread takes it often (biased), another takes it rarely (a process
    // barrier each time, bias kept), then a second frequent taker ends the
    // bias; a plain counter loses no update through all three phases.
    AdaptiveLock lock;
    long counter = 0;
    auto often = [&](int times) {
        for (int i = 0; i < times; ++i) {
            lock.LockOften();
            lock.Lock(); // nested inside the section
            counter += 1;
            lock.Unlock();
            lock.Unlock();
        }
    };
    std::atomic<bool> stop{false};
    long ownerAdded = 0; // the owner's own tally, read after join
    std::promise<void> adopted;
    std::thread owner([&] {
        often(1); // the first frequent taker: the owner from here on
        adopted.set_value();
        often(49999);
        ownerAdded = 50000;
        while (!stop) {
            often(1000);
            ownerAdded += 1000;
        }
    });
    adopted.get_future().wait();
    std::thread rare([&] {
        for (int i = 0; i < 200; ++i) {
            ScopedLock guard(lock);
            counter += 1000000;
        }
    });
    rare.join();
    EXPECT_TRUE(lock.isBiased()) << "a rare taker ended the bias";
    std::thread second([&] { often(50000); });
    second.join();
    EXPECT_FALSE(lock.isBiased());
    stop = true;
    owner.join();
    EXPECT_EQ(counter, ownerAdded + 200 * 1000000L + 50000);
}

TEST(SyncTest, ManualEventStaysFiredAutoEventIsConsumed) {
    // A manual event stays fired through waits until Reset; an auto event is
    // cleared by the wait that sees it, so the next wait times out.
    for (Event::Type type : {Event::ManualReset, Event::AutoReset}) {
        const bool manual = type == Event::ManualReset;
        SCOPED_TRACE(manual ? "manual" : "auto");
        Event e(type);
        EXPECT_FALSE(e.IsFired());
        e.Fire();
        EXPECT_TRUE(e.IsFired());
        EXPECT_TRUE(e.Wait(0));
        EXPECT_EQ(manual, e.IsFired());
        EXPECT_EQ(manual, e.Wait(20));
        EXPECT_EQ(manual, e.IsFired());
        e.Reset();
        EXPECT_FALSE(e.IsFired());
        EXPECT_FALSE(e.Wait(1));
    }
}

TEST(SyncTest, TimeoutCarriesIntoTheNextSecond) {
    // A timed-out wait answers false, leaves the event clear and reports nothing,
    // also when its deadline's nanoseconds run past a whole second.
    qztest::FaultCollector faults;
    Event e(Event::ManualReset);
    EXPECT_FALSE(e.Wait(999));
    EXPECT_FALSE(e.IsFired());
    EXPECT_EQ(faults.count(), 0u);
}

TEST(SyncTest, FireFromAnotherThreadWakesTheWaiter) {
    // Fire on one thread releases a waiter on another, timed or unbounded.
    for (Event::Type type : {Event::ManualReset, Event::AutoReset}) {
        Event timed(type);
        auto waiter = std::async(std::launch::async, [&timed] { return timed.Wait(60000); });
        timed.Fire();
        EXPECT_TRUE(waiter.get());
        EXPECT_EQ(timed.IsFired(), type == Event::ManualReset);

        Event unbounded(type);
        auto blocked = std::async(std::launch::async, [&unbounded] { return unbounded.Wait(0); });
        unbounded.Fire();
        if (blocked.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
            ADD_FAILURE() << "Wait(0) was not woken by Fire";
            unbounded.Fire();
        }
        EXPECT_TRUE(blocked.get());
    }
}

TEST(SyncTest, AutoEventReleasesOneWaiterPerFire) {
    // Each Fire of an auto event lets exactly one of several waiters through.
    Event e(Event::AutoReset);
    std::atomic<int> through{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i)
        waiters.emplace_back([&] {
            if (e.Wait(60000))
                through.fetch_add(1);
        });
    for (int i = 0; i < 4; ++i) {
        e.Fire();
        while (through.load() < i + 1 && e.IsFired()) {
        }
    }
    for (std::thread& w : waiters)
        w.join();
    EXPECT_EQ(through.load(), 4);
    EXPECT_FALSE(e.IsFired());
}

int g_onceControl = 0;
std::atomic<int> g_onceRuns{0};
int g_onceValue = 0;
void runOnce() {
    g_onceRuns.fetch_add(1);
    g_onceValue = 42;
}

TEST(SyncTest, OnceRunsOnceAcrossThreads) {
    // Racing threads run the routine once, and each sees its effect on return.
    std::atomic<int> ready{0};
    std::atomic<int> sawValue{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] {
            ready.fetch_add(1);
            while (ready.load() < 8) {
            }
            Once(g_onceControl, &runOnce);
            if (g_onceValue == 42)
                sawValue.fetch_add(1);
        });
    for (std::thread& t : threads)
        t.join();
    Once(g_onceControl, &runOnce);
    EXPECT_EQ(g_onceRuns.load(), 1);
    EXPECT_EQ(sawValue.load(), 8);
}

std::atomic<int> g_destroyed{0};
void destroyValue(void* value) {
    g_destroyed.fetch_add(*static_cast<int*>(value));
}

TEST(SyncTest, ThreadLocalStorageIsPerThread) {
    // Each thread sees its own value; copies share the key; the destructor gets each thread's value.
    _ThreadLocalStorage slot(&destroyValue);
    _ThreadLocalStorage copy = slot;
    int mine = 1;
    slot.set(&mine);
    EXPECT_EQ(copy.get(), &mine);

    int theirs = 10;
    void* seenAtStart = &theirs;
    void* seenAfterSet = nullptr;
    std::thread([&] {
        seenAtStart = slot.get();
        slot.set(&theirs);
        seenAfterSet = copy.get();
    }).join();
    EXPECT_EQ(seenAtStart, nullptr);
    EXPECT_EQ(seenAfterSet, &theirs);
    EXPECT_EQ(g_destroyed.load(), 10);
    EXPECT_EQ(slot.get(), &mine);
    slot.set(nullptr);

    static int processControl = 0;
    Once(processControl, &allocateTLS);
    ASSERT_NE(processTLS(), nullptr);
    processTLS()->set(&mine);
    EXPECT_EQ(processTLS()->get(), &mine);
    processTLS()->set(nullptr);
}

struct Counted {
    static inline std::atomic<int> live{0};
    int value = 0;
    Counted() { live.fetch_add(1); }
    ~Counted() { live.fetch_sub(1); }
};

TEST(SyncTest, ThreadLocalWrapperMakesOnePerThread) {
    // The wrapper gives each thread its own object and destroys it when the thread ends.
    using Wrapper = qzs::qzlib::ThreadLocal::ThreadLocalWrapper<Counted>;
    Wrapper::get().value = 7;
    const int liveHere = Counted::live.load();
    int seen = -1;
    std::thread([&] {
        seen = Wrapper::get().value;
        Wrapper::get().value = 9;
    }).join();
    EXPECT_EQ(seen, 0);
    EXPECT_EQ(Counted::live.load(), liveHere);
    EXPECT_EQ(Wrapper::get().value, 7);
}

} // namespace
