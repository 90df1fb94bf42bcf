#include "frame/Sha256.h"

#include <bit>
#include <cmath>
#include <cstddef>
#include <string>

namespace sonra {
namespace {

constexpr std::size_t shaBlock = 64;
constexpr std::size_t shaLengthSize = 8;
constexpr std::size_t shaRounds = 64;

using ShaState = std::array<std::uint32_t, 8>;
using ShaWords = std::array<std::uint32_t, shaRounds>;

bool isPrime(int number) {
    for (int divisor = 2; divisor * divisor <= number; ++divisor)
        if (number % divisor == 0) return false;
    return true;
}

/// The first 32 bits behind the point of the cube roots of the first primes, by which the algorithm
/// defines its constants.
ShaWords rootConstants() {
    ShaWords constants{};
    int prime = 1;
    for (auto& constant : constants) {
        do ++prime;
        while (!isPrime(prime));
        const double root = std::cbrt(prime);
        constant = static_cast<std::uint32_t>(std::ldexp(root - std::floor(root), 32));
    }
    return constants;
}

std::uint32_t bigEndian32(std::string_view bytes) {
    std::uint32_t value = 0;
    for (const char byte : bytes.substr(0, 4))
        value = value << 8 | std::uint32_t{static_cast<std::uint8_t>(byte)};
    return value;
}

/// The block's sixteen words, and those that are mixed from them.
ShaWords schedule(std::string_view block) {
    ShaWords w{};
    for (std::size_t i = 0; i < 16; ++i) w[i] = bigEndian32(block.substr(4 * i));
    for (std::size_t i = 16; i < shaRounds; ++i) {
        const auto a = w[i - 15];
        const auto b = w[i - 2];
        w[i] = w[i - 16] + (std::rotr(a, 7) ^ std::rotr(a, 18) ^ a >> 3) + w[i - 7] +
               (std::rotr(b, 17) ^ std::rotr(b, 19) ^ b >> 10);
    }
    return w;
}

void addShaBlock(ShaState& state, std::string_view block) {
    static const auto constants = rootConstants();
    const auto words = schedule(block);
    auto [a, b, c, d, e, f, g, h] = state;
    for (std::size_t i = 0; i < shaRounds; ++i) {
        const auto chosen = (e & f) ^ (~e & g);
        const auto majority = (a & b) ^ (a & c) ^ (b & c);
        const auto first = h + (std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25)) + chosen +
                           constants[i] + words[i];
        const auto second = (std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22)) + majority;
        h = g;
        g = f;
        f = e;
        e = d + first;
        d = c;
        c = b;
        b = a;
        a = first + second;
    }
    const ShaState mixed{a, b, c, d, e, f, g, h};
    for (std::size_t i = 0; i < state.size(); ++i) state[i] += mixed[i];
}

/// What follows the last whole block: the rest of the text, a one bit, zeros, the length in bits.
std::string shaTail(std::string_view rest, std::size_t length) {
    std::string tail(rest);
    tail += '\x80';
    while (tail.size() % shaBlock != shaBlock - shaLengthSize) tail += '\0';
    const std::uint64_t bits = std::uint64_t{length} * 8;
    for (std::size_t i = shaLengthSize; i > 0; --i)
        tail += static_cast<char>(bits >> (8 * (i - 1)) & 0xFFU);
    return tail;
}

void addShaBlocks(ShaState& state, std::string_view blocks) {
    for (; blocks.size() >= shaBlock; blocks.remove_prefix(shaBlock))
        addShaBlock(state, blocks.substr(0, shaBlock));
}

}  // namespace

std::array<std::uint8_t, 32> sha256(std::string_view bytes) {
    ShaState state{0x6A09E667, 0xBB67AE85, 0x3C6EF372, 0xA54FF53A,
                   0x510E527F, 0x9B05688C, 0x1F83D9AB, 0x5BE0CD19};
    const std::size_t whole = bytes.size() - bytes.size() % shaBlock;
    addShaBlocks(state, bytes.substr(0, whole));
    addShaBlocks(state, shaTail(bytes.substr(whole), bytes.size()));
    std::array<std::uint8_t, 32> digest{};
    for (std::size_t i = 0; i < digest.size(); ++i)
        digest[i] = static_cast<std::uint8_t>(state[i / 4] >> (8 * (3 - i % 4)));
    return digest;
}

}  // namespace sonra
