// The AES key with which results are sealed, assembled at run time from
// masked byte constants, so that the key never stands in the library as one
// contiguous block.
#pragma once

#include <array>
#include <cstdint>

namespace kelo::jni {

inline std::array<int8_t, 16> assemble_aes_key() {
  static constexpr uint8_t kMasked[16] = {
#include "aes_key_masked.inc"
  };
  // A volatile seed keeps the compiler from folding the key back into one
  // constant.
  volatile uint8_t seed = 0x5A;
  std::array<int8_t, 16> key{};
  for (unsigned i = 0; i < key.size(); ++i) {
    const auto mask = static_cast<uint8_t>(seed + 37U * i);
    key[i] = static_cast<int8_t>(kMasked[i] ^ mask);
  }
  return key;
}

}  // namespace kelo::jni
