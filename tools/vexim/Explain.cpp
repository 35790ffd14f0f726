#include "Explain.h"

#include "chat/Text.h"

std::string explain(const vexim::ErrorPtr& error) {
    if (!error) return "no reason given";
    // A refused login carries the service's own words instead of a localized description.
    const auto words = error->info("errorMessage").asString().value_or(error->localizedDescription());
    return chat::harmless(words + " (" + error->domain() + " " + std::to_string(error->code()) + ")");
}
