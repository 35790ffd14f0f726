#pragma once

#include <functional>
#include <memory>
#include <string>

#include "Account.h"

/// Logs in. `ended` runs once: with an empty text if the service accepts the login, otherwise with
/// the reason. It runs at once if the connection reports an error, because such a login never gets
/// an answer, and after 30 seconds without an answer. Throws std::invalid_argument if no user is
/// named.
void logInOnce(const std::shared_ptr<VXIMClient>& client, const Credentials& credentials,
               std::function<void(const std::string& complaint)> ended);

/// Logs in and waits for the result. Throws std::runtime_error with the reason if that fails.
void logIn(const std::shared_ptr<VXIMClient>& client, const Credentials& credentials);

/// The user's id. If only a user name is given, it logs in to find out. Throws like `logIn`.
std::string userIdOf(const std::shared_ptr<VXIMClient>& client, const Credentials& credentials);
