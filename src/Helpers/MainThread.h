// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

// The main thread is the Qt GUI thread: the thread of the QCoreApplication instance.

// False when there is no application object.
bool isMainThread();

// Queues fn to the main thread's event loop and returns at once. Dropped when there is no application
// object (fn would never run anyway).
void runOnMainThread(std::function<void()> fn);

// Runs fn on the main thread and returns when it has run: directly when already there, otherwise through
// a blocking queued call. Deadlocks if the main thread is itself waiting for the calling thread (a join or
// a lock held while the caller runs): call it only from threads the main thread never blocks on.
void runOnMainThreadAndWait(std::function<void()> fn);

// Returns true on the main thread. Elsewhere it logs "Method can only be called on main thread!" as an
// error, then aborts in debug builds (Q_ASSERT semantics) and returns false in release builds, so the
// caller may bail out.
bool assertMainThread();
