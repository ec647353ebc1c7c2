// The jobserver client alone: who waits for a slot, and what the stop path hands back.

#include "director/Jobserver.h"

#include <QTemporaryDir>
#include <fcntl.h>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

// A job waits while the implicit slot and the one token are taken, and gets the implicit
// slot when it is given back; the stop path writes back the token held, and keeps its lock.
TEST(Jobserver, WaiterGetsTheFreedSlotAndTheStopHandsTokensBack) {
    QTemporaryDir dir;
    const QByteArray fifo = dir.filePath("fifo").toUtf8();
    ASSERT_EQ(mkfifo(fifo.constData(), 0600), 0);
    const int served = open(fifo.constData(), O_RDWR | O_NONBLOCK);
    ASSERT_EQ(write(served, "t", 1), 1);
    static auto* server = // never destroyed: handBackForExit keeps its lock
        new director::Jobserver(("--jobserver-auth=fifo:" + fifo).constData());
    EXPECT_FALSE(server->takeSlot()) << "the implicit slot comes first";
    EXPECT_TRUE(server->takeSlot());
    const auto slot = std::make_shared<std::promise<bool>>(); // outlives a waiter that hangs
    std::future<bool> waiter = slot->get_future();
    std::thread([slot] { slot->set_value(server->takeSlot()); }).detach();
    EXPECT_EQ(waiter.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
    server->giveBack(false);
    ASSERT_EQ(waiter.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_FALSE(waiter.get());
    char byte = 0;
    EXPECT_EQ(read(served, &byte, 1), -1) << "the token is still held";
    server->handBackForExit();
    EXPECT_TRUE(read(served, &byte, 1) == 1 && byte == 't');
    close(served);
}
