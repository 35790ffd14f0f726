#pragma once

namespace vexim::c {

/// Whether the calling process may use the library: not in a forked child of a process that has
/// started it.
bool isAtHome() noexcept;

/// Makes sure that a thread of ours runs the main queue. False if the process is exiting or has no
/// more threads.
bool turnMainQueue();

}  // namespace vexim::c
