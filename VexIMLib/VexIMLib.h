#pragma once

// The one include that an application needs. Its main classes:
//
// - VXIMClient: one user's connection, with login, messages and presence. Start here.
// - VXIMClientConfiguration: the credentials and the service's address.
// - VXIMClientDelegate: receives messages and other events.
// - VXIMMessage, VXIMUser, VXIMFriendInfo, VXIMGroup, VXIMRoom, VXIMPassenger: the service's data.
// - VXIMQuery: searches for users, groups and rooms.
// - VXIMTransfer: cancels an upload or a download, and follows its progress.
// - vexim::MainQueue: runs all callbacks. Run it, or connect it to your event loop (Loops/).
// - vexim::Value, vexim::Dictionary, vexim::Array: the types of parameters and results.
// - vexim::Error: what went wrong, by domain and code. VXIMErrors.h lists the codes.
// - vexim::Exception: a mistake in the program, such as a nil argument.
// - vexim::SocketIOClient: the live connection; talks to any Socket.IO server.
//
// A program that logs in and prints what it receives:
//
//     auto configuration = VXIMClientConfiguration::defaultConfiguration();
//     configuration->setAppId("app");
//     configuration->setClientKey("key");
//     configuration->setInstallationId("laptop");
//     auto client = VXIMClient::clientWithConfiguration(configuration);
//     client->setDelegate(printer);  // a VXIMClientDelegate, held weakly
//     client->loginWithUserId("alice", [](bool succeeded, vexim::ErrorPtr error) { … });
//     vexim::MainQueue::shared().run();
//
// To be included separately: futures and coroutines (Async/), adapters for event loops (Loops/),
// the message store (Store/), the test kit (Testing/) and the C interface (C/).

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/Foundation/Date.h"
#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/Image.h"
#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/Foundation/Log.h"
#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/Foundation/NotificationCenter.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/SortDescriptor.h"
#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/SocketIOClient.h"
#include "VexIMLib/VXIMAttributedObject.h"
#include "VexIMLib/VXIMClient.h"
#include "VexIMLib/VXIMClientConfiguration.h"
#include "VexIMLib/VXIMClientDelegate.h"
#include "VexIMLib/VXIMCompletions.h"
#include "VexIMLib/VXIMConstants.h"
#include "VexIMLib/VXIMDiagnosis.h"
#include "VexIMLib/VXIMErrors.h"
#include "VexIMLib/VXIMFriendInfo.h"
#include "VexIMLib/VXIMGroup.h"
#include "VexIMLib/VXIMMessage.h"
#include "VexIMLib/VXIMMessageTarget.h"
#include "VexIMLib/VXIMMetrics.h"
#include "VexIMLib/VXIMPassenger.h"
#include "VexIMLib/VXIMPropertyNameFromSelector.h"
#include "VexIMLib/VXIMQuery.h"
#include "VexIMLib/VXIMRoom.h"
#include "VexIMLib/VXIMSettings.h"
#include "VexIMLib/VXIMTransfer.h"
#include "VexIMLib/VXIMUser.h"
