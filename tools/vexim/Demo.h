#pragma once

#include "Account.h"

/// Tells the library's whole story with two users of the local development service, checks each step, and prints it.
/// Ends within 30 seconds. 0 when every step held.
int runDemo(const Account& account);
