// The terminal's platform information library (libzorplatforminfo).
#pragma once

constexpr int kPlatformInfoSerialNumber = 35;

// Writes the information `item` into `buffer` as text, ended by a zero byte where `size` bytes leave room for it, and
// its length in bytes into `returnedLength`. Returns 0 on success, non-zero when the item is not known or does not fit.
extern "C" int platforminfo_get(int item, char* buffer, unsigned long size, unsigned long* returnedLength);
