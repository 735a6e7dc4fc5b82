// Base64 with the standard alphabet of RFC 4648 and "=" padding.
#pragma once

namespace zorhtml {

// Encodes `length` bytes (a negative length counts as 0) into `output` of `size` bytes, and ends the text with a zero
// byte. Returns the text's length, (length + 2) / 3 * 4; or -1, with nothing written, when `size` is not larger than
// that. The two areas may overlap.
int base64Encode(const void* input, int length, char* output, int size);

// Decodes `length` characters (negative: up to the first zero byte) into `output` of `size` bytes. Every character
// outside the alphabet is skipped: padding, blanks, line breaks, the "-" and "_" of the URL-safe alphabet. Bits left
// over at the end give a byte for each 8. Returns the number of bytes; -1 when they do not fit.
int base64Decode(const char* input, int length, void* output, int size);

}  // namespace zorhtml
