// A small reader for WFDB records: the .hea header, signal files in the
// formats 212 (two 12-bit samples in three bytes) and 16 (16-bit little
// endian), and annotation files in the MIT format (.atr and friends).
//
// Only single-segment records with one sample per signal per frame and no
// skew are read; anything else is refused with a clear message.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace keloecg::wfdb {

struct SignalLine {
  std::string file;          // signal file name, relative to the header
  int format = 0;            // 212 or 16 (others are parsed but refused on reading)
  int samples_per_frame = 1;
  int skew = 0;
  long long byte_offset = 0;
  double gain = 200.0;       // ADC units per physical unit (0 in the header means 200)
  double baseline = 0.0;     // ADC value of physical zero (defaults to adc_zero)
  std::string units = "mV";
  int adc_resolution = 0;    // bits (0: the format's default)
  int adc_zero = 0;
  std::optional<int> initial_value;
  std::optional<int> checksum;
  int block_size = 0;
  std::string description;
};

struct Header {
  std::string record;
  int signal_count = 0;
  double fs = 250.0;  // the WFDB default when the header gives none
  std::optional<long long> samples_per_signal;
  std::vector<SignalLine> signals;
};

// Parses header text; `where` names the file in error messages.
// Throws InputError on malformed lines.
Header parse_header(std::string_view text, const std::string& where);

// ADC range of a signal: [adc_zero - 2^(bits-1), adc_zero + 2^(bits-1) - 1].
struct AdcRange {
  int min = 0;
  int max = 0;
};
AdcRange adc_range(const SignalLine& s);

// Decoders over the raw bytes of one signal file: the interleaved sample
// stream (frame by frame, one sample per signal of the file).
std::vector<int> decode_212(std::span<const std::uint8_t> bytes, std::size_t count);
std::vector<int> decode_16(std::span<const std::uint8_t> bytes, std::size_t count);

// The sample value that marks an invalid (missing) sample in a format.
int invalid_sample_code(int format);

// WFDB 16-bit checksum of a signal: the sum of its samples modulo 2^16, as a
// signed 16-bit value (the form stored in headers).
int checksum16(std::span<const int> samples);

struct SignalData {
  std::vector<int> adc;        // ADC values of frames first .. first + adc.size() - 1
  long long first = 0;
  long long total = 0;         // frames in the record
  std::vector<std::string> warnings;
};

// Reads the ADC values of signal `index` of the record whose header was
// parsed from `header_path`: the frames from `from_s` seconds to `to_s`
// (default: to the end), and only the bytes that hold them. Throws
// InputError for missing or truncated files and unsupported layouts; a
// checksum or initial value that does not match the header is reported as
// a warning (the checksum only when the whole signal is read).
SignalData read_signal(const Header& header, const std::filesystem::path& header_path, int index,
                       double from_s = 0.0, std::optional<double> to_s = std::nullopt);

struct Annotation {
  long long sample = 0;  // 0-based sample number at the record's rate
  int code = 0;          // annotation code (1 = normal beat, ...)
  std::string symbol;    // mnemonic: "N", "V", "+", ...
  int subtype = 0;
  int chan = 0;
  int num = 0;
  std::string aux;
};

// Decodes an MIT-format annotation file. Throws InputError naming `where`
// when the data ends in the middle of an entry.
std::vector<Annotation> parse_annotations(std::span<const std::uint8_t> bytes,
                                          const std::string& where);

// An MIT-format annotation file holding `annotations` (in time order,
// sample numbers from 0): every field is written, intervals of more than
// 1023 samples with a SKIP entry. Throws std::invalid_argument for
// annotations out of order or with a code outside 1..49.
std::string encode_annotations(std::span<const Annotation> annotations);

// Mnemonic of an annotation code ("" for codes without one).
std::string_view code_symbol(int code);

// The code of a mnemonic (0 for none).
int symbol_code(std::string_view symbol);

// True for the symbols that mark a beat: N L R B A a J S V r F e j n E / f Q ?
bool is_beat_symbol(std::string_view symbol);

}  // namespace keloecg::wfdb
