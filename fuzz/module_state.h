// The module's global state, as targets and tests look at it.
#pragma once

namespace fuzzing {

/// Starts the module, once, with the callbacks of ScriptHost and under the memory meter.
void startModule();

/// Brings the module back to the state after its start, in rewrite mode 0.
void forgetCalls();

/// Checks what holds between any two packets: each record of a pool on exactly one of its lists,
/// the index of the H.245 connections in step with them, and no stream buffer that claims more than
/// it holds or keeps a pointer into a packet.
void requireConsistentState();

/// Checks that records which are free hold nothing of the calls before.
void requireClearFreeRecords();

} // namespace fuzzing
