#pragma once

#include <functional>
#include <memory>
#include <string>

#include "Account.h"

/// Logs in, and says why when that does not work: `ended` runs once, with an empty text when the
/// service has accepted the login, else with the reason. It comes at once when the connection
/// reports an error, for such a login is never answered, and after 30 seconds when nothing comes.
/// Throws std::invalid_argument when nobody is named.
void logInOnce(const std::shared_ptr<VXIMClient>& client, const Credentials& credentials,
               std::function<void(const std::string& complaint)> ended);
