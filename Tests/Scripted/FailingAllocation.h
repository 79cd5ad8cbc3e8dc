#pragma once

/// @file
/// Memory that runs out: this program's `operator new` fails where a test says so.

/// Makes the n-th allocation of the calling thread from now fail; 0 for none, and once one has failed.
extern thread_local int t_allocationToFail;
