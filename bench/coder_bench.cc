// Packing and unpacking blocks of 64 KiB, beside zlib at level 1 and lz4 on the
// same bytes. Rates are unpacked bytes a second; `packed` is packed size by size.

#include <benchmark/benchmark.h>
#include <lz4.h>
#include <zlib.h>

#include <array>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "storage/block_coder.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr std::size_t kBlocks = 16;

// --- Data ----------------------------------------------------------------------------

// Rows of a pattern: links and a time that count up, states of which a few change
// from row to row, and clocks that toggle.
Bytes patternBlocks() {
  constexpr std::size_t kHeaderSize = 88;
  constexpr std::size_t kRowSize = kHeaderSize + 256;
  std::mt19937 random(1);
  Bytes row(kRowSize, 0);
  for (std::size_t i = kHeaderSize; i < kRowSize; ++i) {
    row[i] = static_cast<std::uint8_t>(random() % 4 * 0x11);
  }
  Bytes bytes;
  for (unsigned number = 1000; bytes.size() < kBlocks * kZipBlockSize; ++number) {
    for (const std::size_t link : {0U, 4U, 8U, 40U}) {
      row[link + 2] = static_cast<std::uint8_t>((number + link) >> 8);
      row[link + 3] = static_cast<std::uint8_t>(number + link);
    }
    for (const std::size_t clock : {100U, 101U, 200U, 300U}) row[clock] ^= 0x10;
    for (unsigned changes = random() % 8; changes > 0; --changes) {
      row[kHeaderSize + random() % 256] = static_cast<std::uint8_t>(random() % 6 * 0x11);
    }
    bytes.insert(bytes.end(), row.begin(), row.end());
  }
  bytes.resize(kBlocks * kZipBlockSize);
  return bytes;
}

Bytes textBlocks() {
  constexpr std::array<std::string_view, 12> kWords = {"signal",  "clock",     "vector", "force",
                                                       "expect",  "period",    "strobe", "drive",
                                                       "pattern", "timeplate", "scan",   "repeat"};
  std::mt19937 random(2);
  Bytes bytes;
  while (bytes.size() < kBlocks * kZipBlockSize) {
    const std::string word =
        std::string(kWords[random() % kWords.size()]) + std::to_string(random() % 1000) + " ";
    bytes.insert(bytes.end(), word.begin(), word.end());
  }
  bytes.resize(kBlocks * kZipBlockSize);
  return bytes;
}

Bytes randomBlocks() {
  std::mt19937 random(3);
  Bytes bytes(kBlocks * kZipBlockSize);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
  return bytes;
}

const std::array<Bytes, 4> kData = {patternBlocks(), textBlocks(), randomBlocks(),
                                    Bytes(kBlocks* kZipBlockSize, 0)};
constexpr std::array<const char*, 4> kDataNames = {"pattern", "text", "random", "zeros"};

std::span<const std::uint8_t> blockOf(std::size_t data, std::size_t block) {
  return std::span(kData[data]).subspan(block * kZipBlockSize, kZipBlockSize);
}

// --- Coders --------------------------------------------------------------------------

struct Coder {
  const char* name;
  std::size_t (*pack)(std::span<const std::uint8_t> in, Bytes& out);
  std::size_t (*unpack)(std::span<const std::uint8_t> in, Bytes& out);
};

std::size_t packZlib(std::span<const std::uint8_t> in, Bytes& out) {
  uLongf size = out.size();
  compress2(out.data(), &size, in.data(), in.size(), 1);
  return size;
}

std::size_t unpackZlib(std::span<const std::uint8_t> in, Bytes& out) {
  uLongf size = out.size();
  uncompress(out.data(), &size, in.data(), in.size());
  return size;
}

std::size_t packLz4(std::span<const std::uint8_t> in, Bytes& out) {
  return static_cast<std::size_t>(LZ4_compress_default(
      reinterpret_cast<const char*>(in.data()), reinterpret_cast<char*>(out.data()),
      static_cast<int>(in.size()), static_cast<int>(out.size())));
}

std::size_t unpackLz4(std::span<const std::uint8_t> in, Bytes& out) {
  return static_cast<std::size_t>(LZ4_decompress_safe(
      reinterpret_cast<const char*>(in.data()), reinterpret_cast<char*>(out.data()),
      static_cast<int>(in.size()), static_cast<int>(out.size())));
}

constexpr std::array<Coder, 3> kCoders = {{
    {"zip",
     [](std::span<const std::uint8_t> in, Bytes& out) {
       return static_cast<std::size_t>(zip(in, out));
     },
     [](std::span<const std::uint8_t> in, Bytes& out) {
       return static_cast<std::size_t>(unzip(in, out));
     }},
    {"zlib", packZlib, unpackZlib},
    {"lz4", packLz4, unpackLz4},
}};

// --- Measures ------------------------------------------------------------------------

std::int64_t bytesOf(const benchmark::State& state) {
  return state.iterations() * static_cast<std::int64_t>(kBlocks * kZipBlockSize);
}

void pack(benchmark::State& state, const Coder& coder, std::size_t data) {
  Bytes out(2 * kZipBlockSize);
  std::size_t packed = 0;
  for (auto _ : state) {
    packed = 0;
    for (std::size_t block = 0; block < kBlocks; ++block) {
      packed += coder.pack(blockOf(data, block), out);
    }
  }
  state.SetBytesProcessed(bytesOf(state));
  state.counters["packed"] =
      static_cast<double>(packed) / static_cast<double>(kBlocks * kZipBlockSize);
}

void unpack(benchmark::State& state, const Coder& coder, std::size_t data) {
  std::vector<Bytes> packed;
  for (std::size_t block = 0; block < kBlocks; ++block) {
    Bytes out(2 * kZipBlockSize);
    out.resize(coder.pack(blockOf(data, block), out));
    packed.push_back(out);
  }
  Bytes out(kZipBlockSize);
  for (auto _ : state) {
    for (const Bytes& block : packed) {
      if (coder.unpack(block, out) != kZipBlockSize) state.SkipWithError("bytes were lost");
    }
  }
  state.SetBytesProcessed(bytesOf(state));
}

const bool registered = [] {
  for (std::size_t data = 0; data < kData.size(); ++data) {
    for (const Coder& coder : kCoders) {
      const std::string name = std::string(kDataNames[data]) + "/" + coder.name;
      benchmark::RegisterBenchmark(("pack/" + name).c_str(), pack, coder, data);
      benchmark::RegisterBenchmark(("unpack/" + name).c_str(), unpack, coder, data);
    }
  }
  return true;
}();

}  // namespace
