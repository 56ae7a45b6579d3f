// The C functions of the encoder and their globals. The traces on standard
// output and the output buffer that grows by one byte per byte are part of
// their published behaviour.

#include <orvante/lzss.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "encode_loop.hpp"

extern "C" {
unsigned char text_buf[4113];
int32_t lson[4097];
int32_t rson[4353];
int32_t dad[4097];
int32_t match_position;
int32_t match_length;
uint64_t textsize;
uint64_t codesize;
uint64_t printcount;
int32_t in_pos;
int32_t out_size;
}

namespace {

const unsigned char* infile;
int32_t in_length;
unsigned char* outfile;

orvante::lzss::MatchFinder globalFinder() {
  return {text_buf, lson, rson, dad, match_position, match_length};
}

struct GlobalIo {
  bool atEnd() { return IsEOF() != 0; }
  std::uint8_t next() { return static_cast<std::uint8_t>(my_getc()); }
  void emit(const std::uint8_t* bytes, int count) {
    for (int i = 0; i < count; ++i) my_putc(bytes[i]);
  }
  void progress(std::uint64_t size) {
    if (size > printcount) {
      std::printf("%12ld\r", static_cast<long>(size));
      printcount += 1024;
    }
  }
  void summary(std::uint64_t written, std::uint64_t read) {
    std::printf("Out: %ld bytes\n", static_cast<long>(written));
    std::printf("Out/In: %.3f\n", static_cast<double>(written) / static_cast<double>(read));
  }
};

}  // namespace

extern "C" {

unsigned char* LZSSEncoding(const unsigned char* buffer, int32_t length) {
  if (outfile) std::free(outfile);
  outfile = static_cast<unsigned char*>(std::malloc(0));
  infile = buffer;
  in_length = length;
  Encode();
  return outfile;
}

uint64_t GetEncodeDataSize(void) {
  return codesize;
}

void Encode(void) {
  in_pos = 0;
  out_size = 0;
  textsize = 0;
  codesize = 0;
  auto finder = globalFinder();
  GlobalIo io;
  orvante::lzss::encodeLoop(finder, {textsize, codesize}, io);
}

void InitTree(void) {
  globalFinder().initTree();
}

void InsertNode(int32_t r) {
  globalFinder().insertNode(r);
}

void DeleteNode(int32_t p) {
  globalFinder().deleteNode(p);
}

int my_getc(void) {
  return infile[in_pos++];
}

int IsEOF(void) {
  std::printf("%d,%d", in_pos, in_length);
  return in_pos >= in_length ? 1 : 0;
}

// A fresh block one byte larger, the old bytes copied over, the old block
// released. When no block can be had the byte is dropped and the output
// kept as it was.
void my_putc(unsigned char c) {
  auto* grown = static_cast<unsigned char*>(std::malloc(static_cast<std::size_t>(out_size) + 1));
  if (!grown) return;
  if (out_size > 0) std::memcpy(grown, outfile, static_cast<std::size_t>(out_size));
  std::free(outfile);
  outfile = grown;
  outfile[out_size] = c;
  ++out_size;
}

}  // extern "C"
