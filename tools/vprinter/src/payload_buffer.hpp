#pragma once
// The bytes of a payload or packet stream as they come, kept in chunks of
// one size. Growing never copies what is held; chunks a finished payload
// gives back wait in a pool for the next, so payloads that come and go,
// stall and are dropped leave the heap no larger than what they held at
// once, and a steady stream of payloads touches no fresh memory.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <orvante/bytes.hpp>

namespace orvante::vprinter {

using Chunk = std::unique_ptr<std::uint8_t[]>;

// Spare chunks, up to a number; the rest go back to the heap.
class ChunkPool {
 public:
  static constexpr std::size_t kChunkBytes = 64 * 1024;

  explicit ChunkPool(std::size_t keptBytes) : kept_(keptBytes / kChunkBytes) {}
  Chunk take();
  void give(Chunk chunk);

 private:
  std::size_t kept_;
  std::vector<Chunk> spare_;
};

class PayloadBuffer {
 public:
  explicit PayloadBuffer(ChunkPool& pool) : pool_(pool) {}
  ~PayloadBuffer() { clear(); }
  PayloadBuffer(const PayloadBuffer&) = delete;
  PayloadBuffer& operator=(const PayloadBuffer&) = delete;

  void append(ByteView bytes);
  std::size_t size() const { return size_; }
  // Copies the bytes into `whole` in one piece (its room is kept for the
  // next payload) and returns them.
  ByteView join(Bytes& whole) const;
  // Gives the chunks back.
  void clear();

 private:
  ChunkPool& pool_;
  std::vector<Chunk> chunks_;
  std::size_t size_ = 0;
};

}  // namespace orvante::vprinter
