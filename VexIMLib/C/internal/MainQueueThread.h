#pragma once

namespace vexim::c {

/// Whether the calling process may use the library. False in a child that was forked after the
/// library had started.
bool isAtHome() noexcept;

/// Makes sure that a thread of ours runs the main queue. False if the process is exiting or has no
/// more threads.
bool turnMainQueue();

}  // namespace vexim::c
