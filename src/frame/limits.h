// Every limit of the library that is not a setting, with its reason.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vx {

// Sequences inside sequences, in streams, in the text forms and in every walk of an object. Real objects stay
// below 20; each level costs a few hundred bytes of stack in the recursive readers.
inline constexpr int kMaxNesting = 128;

// Bytes taken in one step while a value of announced length arrives: memory grows with the data, not with the
// announcement.
inline constexpr std::size_t kReadChunk = 1U << 20;

// Empty answers in a row that a function of the caller may give, each followed by another call: it may wait
// for its data so, but not for ever.
inline constexpr std::size_t kMaxEmptyAnswers = 100000;

// A private creator code (LO allows 64 characters; multi-byte sets need more bytes).
inline constexpr std::size_t kMaxCreatorCode = 513;

// An attribute name of the dictionary.
inline constexpr std::size_t kMaxName = 99;

// A line of a profile, less the line end.
inline constexpr std::size_t kMaxProfileLine = 298;

// A path in the configuration, with its terminator.
inline constexpr std::size_t kMaxPath = 260;

// A text of a log message, with its terminator, and the buffer that it is formatted in.
inline constexpr std::size_t kMaxLogText = 256;
inline constexpr std::size_t kLogFormatBuffer = 1024;

// Inflated bytes that are held at a time: the ratio of a stream then costs no memory.
inline constexpr std::size_t kMaxInflated = 1U << 20;

// An A-ASSOCIATE PDU, header not counted, whatever PDU_MAXIMUM_LENGTH says. What 128 contexts of 26 transfer
// syntaxes and a full user information item need is a third of it.
inline constexpr std::size_t kMaxAssociatePdu = 1U << 20;

// A command group. Real ones take some hundred bytes; lists of attributes and errors within them are short.
inline constexpr std::size_t kMaxCommand = 1U << 20;

// A P-DATA-TF PDU when PDU_MAXIMUM_LENGTH is 0, no limit. The buffer grows with what arrives.
inline constexpr std::size_t kMaxUnlimitedPdu = 256U << 20;

// Services, and transfer syntaxes, that are added while the library runs: some 20 MB of each at the most. A
// peer proposes no more than 128 at a time.
inline constexpr std::size_t kMaxAdded = 65536;

// Bytes of one frame, and samples of one pixel, that a codec works on.
inline constexpr std::size_t kMaxFrame = 0x7FFFFFFFU;
inline constexpr uint32_t kMaxSamples = 4;

// A frame beyond the first of these needs a stream of at least that part of its size: a handful of bytes does
// not make a decoder fill gigabytes. Blank frames of that size would be refused with it; nobody has them.
inline constexpr std::size_t kFreeFrame = 64U << 20;
inline constexpr std::size_t kMaxFrameRatio = 65536;

}  // namespace vx
