#include <gtest/gtest.h>

#include <atomic>
#include <clocale>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/VXIMClientConfiguration.h"
#include "VexIMLib/VXIMMetrics.h"
#include "VexIMLib/internal/Configuration/Meter.h"

namespace vexim {
namespace {

using namespace std::chrono_literals;

class MetricsTest : public ::testing::Test {
protected:
    /// The lines of one metric.
    std::string linesOf(const std::string& name, const VXIMMetricLabels& labels = {}) const {
        const auto text = metrics->prometheusText(labels);
        const auto begin = text.find("# HELP " + name + ' ');
        EXPECT_NE(begin, text.npos) << name;
        return text.substr(begin, text.find("# HELP", begin + 1) - begin);
    }

    const std::shared_ptr<VXIMMetrics> metrics = VXIMMetrics::init();
    const std::shared_ptr<Meter> meter = Meter::of(Dictionary{{"metrics", metrics}});
};

TEST_F(MetricsTest, CountersAndHistogramsAreWrittenAsPrometheusReadsThem) {
    meter->add(Metric::Logins, LoginOutcome::Accepted);
    meter->add(Metric::EventsReceivedBytes, 0, 9'007'199'254'740'993);
    for (const auto duration : {5ms, 6ms, 250ms, 70'000ms, -1ms})
        meter->observe(Metric::ConnectDuration, 0, duration);
    const char* const german =
        std::setlocale(LC_ALL, "de_DE.UTF-8");  // decimal comma, if installed
    EXPECT_EQ(linesOf("vexim_logins_total", {{"node", "a \"b\"\\\nc"}}),
              "# HELP vexim_logins_total Logins that the service answered, including those after "
              "reconnects.\n"
              "# TYPE vexim_logins_total counter\n"
              R"(vexim_logins_total{node="a \"b\"\\\nc",outcome="accepted"} 1)"
              "\n"
              R"(vexim_logins_total{node="a \"b\"\\\nc",outcome="refused"} 0)"
              "\n");
    EXPECT_EQ(linesOf("vexim_connect_duration_seconds"),
              "# HELP vexim_connect_duration_seconds Time from the start of an attempt until the "
              "namespace was joined.\n"
              "# TYPE vexim_connect_duration_seconds histogram\n"
              "vexim_connect_duration_seconds_bucket{le=\"0.005\"} 2\n"
              "vexim_connect_duration_seconds_bucket{le=\"0.01\"} 3\n"
              "vexim_connect_duration_seconds_bucket{le=\"0.025\"} 3\n"
              "vexim_connect_duration_seconds_bucket{le=\"0.05\"} 3\n"
              "vexim_connect_duration_seconds_bucket{le=\"0.1\"} 3\n"
              "vexim_connect_duration_seconds_bucket{le=\"0.25\"} 4\n"
              "vexim_connect_duration_seconds_bucket{le=\"0.5\"} 4\n"
              "vexim_connect_duration_seconds_bucket{le=\"1\"} 4\n"
              "vexim_connect_duration_seconds_bucket{le=\"2.5\"} 4\n"
              "vexim_connect_duration_seconds_bucket{le=\"5\"} 4\n"
              "vexim_connect_duration_seconds_bucket{le=\"10\"} 4\n"
              "vexim_connect_duration_seconds_bucket{le=\"30\"} 4\n"
              "vexim_connect_duration_seconds_bucket{le=\"60\"} 4\n"
              "vexim_connect_duration_seconds_bucket{le=\"+Inf\"} 5\n"
              "vexim_connect_duration_seconds_sum 70.261\n"
              "vexim_connect_duration_seconds_count 5\n");
    if (german) std::setlocale(LC_ALL, "C");
    // a double holds no more digits
    EXPECT_NE(linesOf("vexim_events_received_bytes_total").find(" 9007199254740992\n"),
              std::string::npos);
    EXPECT_EQ(metrics->total("vexim_connect_duration_seconds"), 5);
    EXPECT_EQ(metrics->total("vexim_logins_total"), 1);
    EXPECT_EQ(metrics->total("vexim_logins_total", {{"outcome", "refused"}}), 0);
    EXPECT_EQ(metrics->total("vexim_nothing"), std::nullopt);
    const auto described = metrics->value();
    EXPECT_EQ(described.get(5).get("series").get(0).get("count"), 5);
}

TEST_F(MetricsTest, TheLinesOfSeveralStandTogetherByName) {
    const auto other = VXIMMetrics::init();
    auto all = metrics->read({{"tenant", "a"}});
    for (auto& metric : other->read({{"tenant", "b"}})) all.push_back(std::move(metric));
    const std::string text = VXIMMetrics::prometheusTextOf(all);
    // A server refuses a name that is described twice, or whose lines are not together.
    EXPECT_EQ(text.find("# TYPE vexim_logins_total"), text.rfind("# TYPE vexim_logins_total"));
    EXPECT_NE(text.find("vexim_events_sent_total{tenant=\"a\"} 0\n"
                        "vexim_events_sent_total{tenant=\"b\"} 0\n"),
              std::string::npos);
}

TEST_F(MetricsTest, LabelsThatAServerWouldRefuseRaise) {
    const std::pair<const char*, VXIMMetricLabels> cases[] = {
        {"no name", {{"", "x"}}},
        {"a name with a dash", {{"data-centre", "x"}}},
        {"a name that begins with a digit", {{"1st", "x"}}},
        {"a name that is the server's own", {{"__name__", "x"}}},
        {"a bucket's bound", {{"le", "1"}}},
        {"one of the library's", {{"cause", "x"}}},
        {"one name twice", {{"a", "1"}, {"a", "2"}}},
        {"a value that is not UTF-8", {{"a", "\xff"}}},
    };
    for (const auto& [why, labels] : cases)
        EXPECT_THROW((void)metrics->read(labels), Exception) << why;
    EXPECT_NO_THROW((void)metrics->read({{"_a1", "ü"}, {"b", ""}}));
}

TEST_F(MetricsTest, TheMainQueueTellsHowMuchIsInLine) {
    MainQueue::shared().drain();  // what other cases left
    MainQueue::shared().async([] {});
    MainQueue::shared().async([&] { EXPECT_EQ(metrics->total("vexim_main_queue_length"), 1); });
    MainQueue::shared().async([] {});
    EXPECT_EQ(metrics->total("vexim_main_queue_length"), 3);
    MainQueue::shared().drain();
    EXPECT_EQ(metrics->total("vexim_main_queue_length"), 0);
}

/// Reports this amount as waiting, as long as it lives.
struct Waiting final : Meter::Source {
    explicit Waiting(std::shared_ptr<Meter> meter) : registration(std::move(meter), *this) {}
    void addLevels(Meter::Figures& figures) const override {
        figures[Meter::slot(Metric::SendQueueEvents, 0)] += static_cast<std::uint64_t>(amount);
    }
    int amount = 7;
    const MeterSourceRegistration registration;
};

TEST_F(MetricsTest, AreReadWhileThreadsCountAndConnectionsComeAndGo) {
    constexpr int kRounds = 2'000;
    const Waiting stays(meter);
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round) {
                const Waiting comesAndGoes(meter);
                meter->add(Metric::EventsSent, 0, 2);
                meter->observe(Metric::RequestDuration, 1, 1s);
            }
        });
    }
    double last = 0;
    while (last < 3 * 2 * kRounds) {
        const auto now = metrics->total("vexim_events_sent_total").value_or(-1);
        ASSERT_GE(now, last);
        last = now;
        const double waiting = metrics->total("vexim_send_queue_events").value_or(-1);
        ASSERT_TRUE(waiting >= 7 && waiting <= 28) << waiting;
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(metrics->total("vexim_send_queue_events"), 7);
    EXPECT_EQ(metrics->total("vexim_request_duration_seconds", {{"outcome", "refused"}}),
              3 * kRounds);
}

TEST_F(MetricsTest, AConfigurationHandsThemOnAsAnOption) {
    const auto configuration = VXIMClientConfiguration::init();
    EXPECT_EQ(configuration->metrics(), nullptr);
    configuration->setMetrics(metrics);
    EXPECT_EQ(configuration->metrics(), metrics);
    EXPECT_EQ(Meter::of(configuration->dictionary()), meter);
    configuration->setMetrics(nullptr);
    EXPECT_FALSE(configuration->dictionary().contains("metrics"));
    EXPECT_EQ(Meter::of(Dictionary{{"metrics", "yes"}}), nullptr);
}

}  // namespace
}  // namespace vexim
