#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

#include "VexIMLib/C/internal/Errors.h"
#include "VexIMLib/VXIMClientConfiguration.h"
#include "VexIMLib/VXIMMetrics.h"

namespace vexim::c {

/// The argument of `vexim_create`.
struct Configuration {
    std::shared_ptr<VXIMClientConfiguration> client;  // nullptr if there is a problem
    bool notifications = false;
    std::size_t queueBytes = std::size_t{64} * 1024 * 1024;
    std::optional<Problem> problem;
};

/// The metrics of all clients whose configuration has "metrics": true. Never destroyed.
const std::shared_ptr<VXIMMetrics>& metricsOfProcess();

Configuration readConfiguration(std::string_view text);

}  // namespace vexim::c
