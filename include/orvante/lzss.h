/* The LZSS encoder of bitmap payloads, as plain C functions over global
 * state. One encoding must finish before the next begins; the state (ring,
 * trees, progress threshold) carries over from call to call.
 *
 * Use: LZSSEncoding(bytes, length), then copy GetEncodeDataSize() bytes from
 * the returned pointer before the next call. The buffer belongs to the
 * encoder; the next LZSSEncoding releases it. */
#ifndef ORVANTE_LZSS_H
#define ORVANTE_LZSS_H

#include <stdint.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/* The 4096-byte ring; positions 4096 to 4112 mirror 0 to 16. */
extern unsigned char text_buf[4113];
/* Tree links of each ring position; 4096 is "none". rson[4097 + c] is the
 * root of the tree of strings that begin with byte c. */
extern int32_t lson[4097];
extern int32_t rson[4353];
extern int32_t dad[4097];
/* The longest match found by the last InsertNode. */
extern int32_t match_position;
extern int32_t match_length;
/* Input read and output written by the current encoding. */
extern uint64_t textsize;
extern uint64_t codesize;
/* Progress threshold; never reset, so progress lines appear only while an
 * input is larger than everything counted before. */
extern uint64_t printcount;
extern int32_t in_pos;
extern int32_t out_size;

/* Compresses length bytes; returns the encoder's output buffer. */
unsigned char* LZSSEncoding(const unsigned char* buffer, int32_t length);
/* Size of the last LZSSEncoding's result. */
uint64_t GetEncodeDataSize(void);
void Encode(void);
void InitTree(void);
void InsertNode(int32_t r);
void DeleteNode(int32_t p);
/* The next input byte; no bounds test. */
int my_getc(void);
/* 1 at the end of the input. Prints "in_pos,in_length" on every call. */
int IsEOF(void);
/* Appends one byte, growing the output by exactly one byte. */
void my_putc(unsigned char c);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

#endif
