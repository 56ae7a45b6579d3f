#include "payload_buffer.hpp"

#include <algorithm>
#include <cstring>

namespace orvante::vprinter {

Chunk ChunkPool::take() {
  if (spare_.empty()) return std::make_unique_for_overwrite<std::uint8_t[]>(kChunkBytes);
  Chunk chunk = std::move(spare_.back());
  spare_.pop_back();
  return chunk;
}

void ChunkPool::give(Chunk chunk) {
  if (spare_.size() < kept_) spare_.push_back(std::move(chunk));
}

void PayloadBuffer::append(ByteView bytes) {
  constexpr std::size_t kChunk = ChunkPool::kChunkBytes;
  while (!bytes.empty()) {
    const std::size_t used = size_ % kChunk;
    if (used == 0) chunks_.push_back(pool_.take());
    const std::size_t taken = std::min(bytes.size(), kChunk - used);
    std::memcpy(chunks_.back().get() + used, bytes.data(), taken);
    size_ += taken;
    bytes = bytes.subspan(taken);
  }
}

ByteView PayloadBuffer::join(Bytes& whole) const {
  constexpr std::size_t kChunk = ChunkPool::kChunkBytes;
  whole.clear();
  for (std::size_t at = 0; at < size_; at += kChunk) {
    const std::uint8_t* chunk = chunks_[at / kChunk].get();
    whole.insert(whole.end(), chunk, chunk + std::min(kChunk, size_ - at));
  }
  return whole;
}

void PayloadBuffer::clear() {
  for (Chunk& chunk : chunks_) pool_.give(std::move(chunk));
  chunks_.clear();
  size_ = 0;
}

}  // namespace orvante::vprinter
