// The terminal's security library (libzorsec).
#pragma once

constexpr int kCMDiagRecords = 4;   // the query for the diagnostic records, one a call
constexpr int kCMDiagRetry = -510;  // a transient failure: the same call may succeed next time

// Fills `buffer` with the next diagnostic record of `query` and `length` with its size in bytes; on entry `length` is
// the room in `buffer`. After the last record the walk fails once and begins anew; it begins at once where the records
// have changed by then. Returns 0 on success, kCMDiagRetry, or another non-zero value when there is no further record.
// The walk is one for the process: callers serialise.
extern "C" int CMDiag(int query, unsigned char* buffer, unsigned short* length);
