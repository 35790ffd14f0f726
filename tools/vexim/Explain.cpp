#include "Explain.h"

#include "chat/Text.h"

std::string explain(const vexim::ErrorPtr& error) {
    if (!error) return "no reason given";
    return chat::harmless(error->localizedDescription() + " (" + error->domain() + " " + std::to_string(error->code()) + ")");
}
