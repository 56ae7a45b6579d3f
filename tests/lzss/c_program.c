/* The encoder's C functions from a C program. */
#include <orvante/lzss.h>

#include <stdio.h>

int main(void) {
  const unsigned char input[1] = {0x41};
  const unsigned char* out = LZSSEncoding(input, 1);
  int ok = GetEncodeDataSize() == 2 && out[0] == 0x01 && out[1] == 0x41 && out_size == 2;
  fprintf(stderr, "%s\n", ok ? "encoded" : "wrong encoding");
  return ok ? 0 : 1;
}
