#include "ingest/Md5.h"

#include <bit>
#include <cmath>
#include <cstddef>
#include <utility>

namespace sonra {
namespace {

constexpr std::size_t blockSize = 64;
constexpr std::size_t lengthSize = 8;
constexpr std::size_t prefixSize = 8;

using State = std::array<std::uint32_t, 4>;
using Constants = std::array<std::uint32_t, blockSize>;

/// The whole part of 2^32 * |sin(i + 1)|, by which the algorithm defines its constants.
Constants sineConstants() {
    Constants constants{};
    for (std::size_t i = 0; i < constants.size(); ++i) {
        const double sine = std::fabs(std::sin(static_cast<double>(i + 1)));
        constants[i] = static_cast<std::uint32_t>(std::ldexp(sine, 32));
    }
    return constants;
}

std::uint32_t littleEndian32(std::string_view bytes) {
    std::uint32_t value = 0;
    for (unsigned i = 0; i < 4; ++i)
        value |= std::uint32_t{static_cast<std::uint8_t>(bytes[i])} << (8 * i);
    return value;
}

/// The function of step `i`, and which word of the block it takes.
std::pair<std::uint32_t, std::size_t> stepOf(std::size_t i, const State& s) {
    const auto [a, b, c, d] = s;
    if (i < 16) return {(b & c) | (~b & d), i};
    if (i < 32) return {(d & b) | (~d & c), (5 * i + 1) % 16};
    if (i < 48) return {b ^ c ^ d, (3 * i + 5) % 16};
    return {c ^ (b | ~d), (7 * i) % 16};
}

void addBlock(State& state, std::string_view block) {
    static const Constants constants = sineConstants();
    static constexpr std::array<std::array<int, 4>, 4> rotations{
        {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}}};
    State s = state;
    for (std::size_t i = 0; i < blockSize; ++i) {
        const auto [mixed, word] = stepOf(i, s);
        const std::uint32_t sum =
            s[0] + mixed + constants[i] + littleEndian32(block.substr(4 * word, 4));
        const std::uint32_t next = s[1] + std::rotl(sum, rotations[i / 16][i % 4]);
        s = {s[3], next, s[1], s[2]};
    }
    for (std::size_t i = 0; i < state.size(); ++i) state[i] += s[i];
}

/// What follows the last whole block: the rest of the text, a one bit, zeros, the length in bits.
std::string paddedTail(std::string_view rest, std::size_t length) {
    std::string tail(rest);
    tail += '\x80';
    while (tail.size() % blockSize != blockSize - lengthSize) tail += '\0';
    const std::uint64_t bits = std::uint64_t{length} * 8;
    for (unsigned i = 0; i < lengthSize; ++i) tail += static_cast<char>(bits >> (8 * i) & 0xFFU);
    return tail;
}

void addBlocks(State& state, std::string_view blocks) {
    for (; blocks.size() >= blockSize; blocks.remove_prefix(blockSize)) addBlock(state, blocks);
}

}  // namespace

std::array<std::uint8_t, 16> md5(std::string_view bytes) {
    State state{0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};
    const std::size_t whole = bytes.size() - bytes.size() % blockSize;
    addBlocks(state, bytes.substr(0, whole));
    addBlocks(state, paddedTail(bytes.substr(whole), bytes.size()));
    std::array<std::uint8_t, 16> digest{};
    for (std::size_t i = 0; i < digest.size(); ++i)
        digest[i] = static_cast<std::uint8_t>(state[i / 4] >> (8 * (i % 4)));
    return digest;
}

std::string md5Prefix16(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    const auto digest = md5(bytes);
    std::string hex;
    for (std::size_t i = 0; i < prefixSize; ++i) {
        hex += digits[digest[i] >> 4U];
        hex += digits[digest[i] & 15U];
    }
    return hex;
}

}  // namespace sonra
