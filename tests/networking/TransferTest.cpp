// Transfers of either direction: their handles, and their end with the process.

#include <boost/asio.hpp>
#include <cstdlib>

#include "VexIMLib/VXIMClientConfiguration.h"
#include "VexIMLib/VXIMTransfer.h"
#include "VexIMLib/internal/Networking/ProgressReport.h"
#include "VexIMLib/internal/Networking/VXIMRequest.h"
#include "VexIMLib/internal/Networking/VXIMTransferStages.h"
#include "networking/NetworkingFixture.h"

using namespace vexim;
using namespace vexim::testing;

namespace {

TEST(Transfer, TellsNothingAfterItsEndAndKeepsNothing) {
    const auto held = std::make_shared<int>();
    const auto transfer = VXIMTransfer::transfer();
    const VXIMTransferStages stages(transfer);
    int told = 0;
    transfer->setProgress([&told, held](VXIMTransferProgress) { ++told; });
    stages.report(1, 2);
    EXPECT_TRUE(transfer->cancel());
    stages.report(2, 2);
    EXPECT_EQ(told, 1);
    bool ended = false;
    stages.enter([&ended] { ended = true; });
    EXPECT_TRUE(ended) << "a stage that begins after the cancellation";
    EXPECT_FALSE(stages.finish());
    EXPECT_EQ(held.use_count(), 1);
    transfer->setProgress([held](VXIMTransferProgress) {});
    EXPECT_EQ(held.use_count(), 1) << "too late";
    EXPECT_EQ(rest::percentage(5, 0), 0) << "of nothing";
}

// Does not use the fixture, because the process would leave its folder behind.
TEST(UploadDeathTest, TheProcessEndsWhileABodyWaitsForTheMainThread) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            // a listener without a thread: the exit would have to wait for a thread
            boost::asio::io_context context;
            boost::asio::ip::tcp::acceptor listener(context,
                                                    {boost::asio::ip::address_v4::loopback(), 0});
            vxim_configuration = VXIMClientConfiguration::defaultConfiguration();
            vxim_configuration->setSocketURL(
                URL::parse("http://127.0.0.1:" + std::to_string(listener.local_endpoint().port())));
            smallForm()->uploadWithNewBodyStreamBlock(nullptr, nullptr, nullptr);
            auto peer = listener.accept();
            std::string head;
            boost::asio::read_until(peer, boost::asio::dynamic_buffer(head), "\r\n\r\n");
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
}

}  // namespace
