// Fatal assertions: the one way an internal precondition failure ends the process.
#pragma once

namespace zq {

// Called before the assertion message is written, so that buffered output reaches its files first.
using fatal_hook = void (*)();

// Installs the hook run by fatal_assertion (null removes it). Returns the previous hook.
fatal_hook set_fatal_hook(fatal_hook hook) noexcept;

// Runs the hook, writes "fatal assertion failed in FUNCTION: CONDITION" and a line end to standard
// error, then NOTE and a line end when NOTE is given, then calls abort().
[[noreturn]] void fatal_assertion(const char* function, const char* condition, const char* note = nullptr) noexcept;

}  // namespace zq
