#include "VexIMLib/C/internal/Configuration.h"

#include <string>
#include <vector>

#include "VexIMLib/C/internal/Arguments.h"
#include "VexIMLib/C/internal/Operations.h"
#include "VexIMLib/Foundation/JSON.h"

namespace vexim::c {

const std::shared_ptr<VXIMMetrics>& metricsOfProcess() {
    static const auto& metrics = *new auto(VXIMMetrics::init());
    return metrics;
}

Configuration readConfiguration(std::string_view text) {
    Configuration configuration;
    const auto read = parseJSON(text);
    const auto* given = read.value.asDictionary();
    if (!given) {
        configuration.problem = {
            InterfaceError::NotAnObject,
            "The configuration is not a JSON object" +
                (read.error ? ": " + read.error->localizedDescription() : ".")};
        return configuration;
    }
    static const std::vector<Parameter> parameters = parseParameters(kConfiguration);
    static const std::vector<Parameter> options = parseParameters(kConnectionOptions);
    std::vector<Parameter> all = parameters;
    all.insert(all.end(), options.begin(), options.end());
    configuration.problem = findProblem(all, *given);
    if (configuration.problem) return configuration;

    const auto wrong = [&configuration](std::string description) {
        configuration.problem = {InterfaceError::WrongArgument, std::move(description)};
        return configuration;
    };
    if (const Value& limit = given->get("queueBytes"); limit.isNumber()) {
        if (limit.longLongValue() < 1) return wrong("\"queueBytes\" must be at least 1.");
        configuration.queueBytes = static_cast<std::size_t>(limit.longLongValue());
    }
    configuration.notifications = given->get("notifications").boolValue();

    auto client = VXIMClientConfiguration::defaultConfiguration();
    if (const auto appId = given->get("appId").asString()) client->setAppId(*appId);
    if (const auto clientKey = given->get("clientKey").asString()) client->setClientKey(*clientKey);
    if (const auto installationId = given->get("installationId").asString())
        client->setInstallationId(*installationId);
    if (const auto nsp = given->get("nsp").asString()) client->setNsp(*nsp);
    if (const auto url = given->get("socketURL").asString()) {
        const auto parsed = URL::parse(*url);
        if (!parsed || parsed->host().empty())
            return wrong("\"socketURL\" must be a URL with a host.");
        client->setSocketURL(*parsed);
    }
    // If the configuration chooses any transport, the defaults for transports are dropped.
    if (given->contains("forcePolling") || given->contains("transports"))
        client->dictionary().remove("forceWebsockets");
    for (const Parameter& option : options) {
        const Value& value = given->get(option.name);
        if (!value.isNilOrNull()) client->dictionary().set(option.name, value);
    }
    if (given->get("metrics").boolValue()) client->setMetrics(metricsOfProcess());
    configuration.client = std::move(client);
    return configuration;
}

}  // namespace vexim::c
