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

/// Logs in and waits for it. Throws std::runtime_error with the reason when that does not work.
void logIn(const std::shared_ptr<VXIMClient>& client, const Credentials& credentials);

/// The id of the user who is named; a user name is logged in to learn it. Throws as `logIn`.
std::string userIdOf(const std::shared_ptr<VXIMClient>& client, const Credentials& credentials);
