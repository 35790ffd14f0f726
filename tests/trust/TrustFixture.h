#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/VXIMCompletions.h"
#include "support/ScriptedServer.h"
#include "support/TemporaryFolder.h"

class VXIMRequest;

namespace vexim::testing {

/// The pin of a certificate's key, as applications write it.
std::string pinOf(const std::string& certificatePEM);

/// Every kind of traffic to one server.
class TrustTest : public ::testing::Test {
protected:
    TrustTest();
    ~TrustTest() override;

    /// Answers live connections and requests, and counts them.
    ScriptedServer::Script script();

    /// The result of each kind of traffic to `origin` under `options`: "accepted", or the text of
    /// its error.
    std::vector<std::pair<std::string, std::string>> outcomes(const std::string& origin,
                                                              const Dictionary& options);
    /// The same as one text if all kinds agree; otherwise the differences.
    std::string outcome(const std::string& origin, const Dictionary& options);
    /// The code of URL loading behind the last REST failure; 0 after a success.
    std::int64_t lastCode() const { return lastCode_; }
    int asked() const { return asked_; }

    const TemporaryFolder folder;

private:
    VXIMResultCompletion keep(std::string& outcome);

    std::atomic<int> asked_{0};
    std::int64_t lastCode_ = 0;
    std::vector<std::shared_ptr<VXIMRequest>> requests_;  // the last ones: REST, upload, download
};

}  // namespace vexim::testing
