#include "file_util.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <system_error>

#include "errors.hpp"
#include "memory_reserve.hpp"

namespace keloecg {

namespace fs = std::filesystem;

std::string display(const fs::path& path) { return path.string(); }

void require_readable_file(const fs::path& path) {
  std::error_code ec;
  const auto status = fs::status(path, ec);
  if (ec || !fs::exists(status)) {
    throw InputError(display(path), "no such file");
  }
  if (fs::is_directory(status)) throw InputError(display(path), "is a directory, not a file");
  if (!fs::is_regular_file(status)) throw InputError(display(path), "is not a regular file");
  if (::access(path.c_str(), R_OK) != 0) {
    throw InputError(display(path), std::string("cannot read: ") + std::strerror(errno));
  }
}

std::vector<std::uint8_t> read_bytes(const fs::path& path) {
  require_readable_file(path);
  std::ifstream in(path, std::ios::binary);
  if (!in) throw InputError(display(path), std::string("cannot open: ") + std::strerror(errno));
  std::error_code ec;
  const auto size = fs::file_size(path, ec);
  return read_all(in, ec ? std::nullopt : std::optional<std::uintmax_t>(size), display(path));
}

std::vector<std::uint8_t> read_all(std::istream& in, std::optional<std::uintmax_t> size, const std::string& where) {
  std::vector<std::uint8_t> bytes;
  if (size) bytes.reserve(static_cast<std::size_t>(*size));
  bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  if (in.bad()) throw InputError(where, "read error");
  // A file cut short by another program while we read it would otherwise
  // pass for a shorter recording.
  if (size && bytes.size() < *size) {
    throw InputError(where, "the file shrank while being read (" + std::to_string(*size) + " bytes when opened, " +
                                std::to_string(bytes.size()) + " read)");
  }
  return bytes;
}

std::string read_text(const fs::path& path) {
  const auto bytes = read_bytes(path);
  return std::string(bytes.begin(), bytes.end());
}

namespace {

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};

}  // namespace

void write_file_atomically(const fs::path& path, std::string_view content) {
  check_memory();  // a result made while memory ran out is not written
  const fs::path dir = path.has_parent_path() ? path.parent_path() : fs::path(".");
  std::error_code ec;
  if (!fs::is_directory(dir, ec)) {
    throw InputError(display(path), "cannot write: folder " + display(dir) + " does not exist");
  }
  // mkstemp gives a fresh name in the same folder, so the final rename is
  // atomic and two runs never share a temporary file.
  std::string tmpl = (dir / ("." + path.filename().string() + ".XXXXXX")).string();
  const int fd = ::mkstemp(tmpl.data());
  if (fd < 0) throw InputError(display(path), std::string("cannot write: ") + std::strerror(errno));
  std::unique_ptr<std::FILE, FileCloser> out(::fdopen(fd, "wb"));
  if (!out) {
    ::close(fd);
    ::unlink(tmpl.c_str());
    throw InputError(display(path), "cannot write");
  }
  // Every step that can meet a full disk or a file-size limit is checked
  // (some file systems report it only at fsync or close); the data reach
  // the disk before the rename, so that the name never shows a file that a
  // crash could leave empty.
  bool ok = std::fwrite(content.data(), 1, content.size(), out.get()) == content.size();
  ok = ok && std::fflush(out.get()) == 0;
  ok = ok && ::fsync(fd) == 0;
  int saved_errno = errno;
  if (std::fclose(out.release()) != 0 && ok) {
    ok = false;
    saved_errno = errno;
  }
  if (!ok) {
    ::unlink(tmpl.c_str());
    throw InputError(display(path), std::string("cannot write: ") + std::strerror(saved_errno));
  }
  // mkstemp creates the file with mode 0600; results are ordinary,
  // world-readable files.
  ::chmod(tmpl.c_str(), 0644);
  if (std::rename(tmpl.c_str(), path.c_str()) != 0) {
    const int err = errno;
    ::unlink(tmpl.c_str());
    throw InputError(display(path), std::string("cannot write: ") + std::strerror(err));
  }
}

}  // namespace keloecg
