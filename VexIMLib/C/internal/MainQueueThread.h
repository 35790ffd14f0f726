#pragma once

namespace vexim::c {

/// Whether the calling process may use the library: it is not the forked child of one that has
/// started.
bool isAtHome() noexcept;

/// Makes sure that a thread of ours turns the main queue. False when the process is exiting or has
/// no thread to give.
bool turnMainQueue();

}  // namespace vexim::c
