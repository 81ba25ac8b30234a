#include "update/versions.h"

#include <algorithm>
#include <limits>
#include <vector>

#include "text/strings.h"

// The file format is described under "PE Format" and "VS_VERSIONINFO" in Microsoft's documentation.
// All its numbers are little-endian.
namespace update {
namespace {

constexpr std::int64_t kLargestNumber = std::numeric_limits<std::int32_t>::max();

bool IsDigit(wchar_t unit) {
  return unit >= L'0' && unit <= L'9';
}

std::vector<std::int64_t> NumbersOf(std::wstring_view version) {
  std::vector<std::int64_t> numbers;
  bool inNumber = false;
  for (const wchar_t unit : version) {
    if (!IsDigit(unit)) {
      inNumber = false;
      continue;
    }
    if (!inNumber) numbers.push_back(0);
    inNumber = true;
    numbers.back() = std::min(numbers.back() * 10 + (unit - L'0'), kLargestNumber);
  }
  return numbers;
}

using Bytes = std::span<const std::byte>;

constexpr std::uint32_t kVersionType = 16;  // RT_VERSION
constexpr std::uint32_t kFixedInfoSignature = 0xFEEF04BD;
constexpr std::uint32_t kIsFolder = 0x80000000;
constexpr std::size_t kResourceDirectory = 2;  // its index among the data directories
constexpr std::u16string_view kInfoKey = u"VS_VERSION_INFO";

// `count` bytes at `offset`; none when the file ends before them.
Bytes Part(Bytes bytes, std::size_t offset, std::size_t count) {
  if (offset > bytes.size() || count > bytes.size() - offset) return {};
  return bytes.subspan(offset, count);
}

// The number of `sizeBytes` (2 or 4) at `offset`. 0 past the end: no field read here is validly 0.
std::uint32_t Number(Bytes bytes, std::size_t offset, std::size_t sizeBytes) {
  std::uint32_t number = 0;
  const Bytes part = Part(bytes, offset, sizeBytes);
  for (std::size_t i = part.size(); i > 0; --i) {
    number = number << 8 | std::to_integer<std::uint32_t>(part[i - 1]);
  }
  return number;
}
std::uint32_t U16(Bytes bytes, std::size_t offset) {
  return Number(bytes, offset, 2);
}
std::uint32_t U32(Bytes bytes, std::size_t offset) {
  return Number(bytes, offset, 4);
}

// The parts of the program's headers that lead to the resources.
struct Headers {
  Bytes sections;  // 40 bytes each
  std::uint32_t resourceAddress = 0;
};

std::optional<Headers> ReadHeaders(Bytes program) {
  constexpr std::size_t kCoffBytes = 24;               // with the signature before it
  if (U16(program, 0) != 0x5A4D) return std::nullopt;  // "MZ"
  const std::size_t coff = U32(program, 0x3C);
  if (U32(program, coff) != 0x00004550) return std::nullopt;  // "PE"
  const std::size_t optional = coff + kCoffBytes;
  const std::uint32_t magic = U16(program, optional);
  if (magic != 0x10B && magic != 0x20B) return std::nullopt;  // 32 and 64 bits
  const std::size_t directories = optional + (magic == 0x20B ? 112 : 96);
  // The number of data directories precedes the first of them.
  if (U32(program, directories - 4) <= kResourceDirectory) return std::nullopt;

  Headers headers;
  headers.resourceAddress = U32(program, directories + kResourceDirectory * 8);
  const std::size_t sections = optional + U16(program, coff + 20);
  headers.sections = Part(program, sections, std::size_t{U16(program, coff + 6)} * 40);
  if (headers.resourceAddress == 0 || headers.sections.empty()) return std::nullopt;
  return headers;
}

// The bytes of the file that are loaded at `address`, to the end of their section.
Bytes AtAddress(Bytes program, const Headers& headers, std::uint32_t address) {
  for (Bytes rest = headers.sections; rest.size() >= 40; rest = rest.subspan(40)) {
    const std::uint32_t start = U32(rest, 12);
    const std::uint32_t sizeBytes = U32(rest, 16);
    if (address < start || address - start >= sizeBytes) continue;
    return Part(program, std::size_t{U32(rest, 20)} + (address - start),
                sizeBytes - (address - start));
  }
  return {};
}

// The target of an entry in the folder at `folder`: the one with `id`, or the first one without an
// id. Empty when there is no such entry.
std::optional<std::uint32_t> FindEntry(Bytes resources, std::uint32_t folder,
                                       std::optional<std::uint32_t> id) {
  // Entries with a name and entries with an id are counted separately.
  const std::size_t count = std::size_t{U16(resources, std::size_t{folder} + 12)} +
                            U16(resources, std::size_t{folder} + 14);
  const Bytes entries = Part(resources, std::size_t{folder} + 16, count * 8);
  for (Bytes rest = entries; rest.size() >= 8; rest = rest.subspan(8)) {
    if (!id || U32(rest, 0) == *id) return U32(rest, 4);
  }
  return std::nullopt;
}

// The program's first version resource. Resources are nested in folders by type, name and language.
Bytes VersionResource(Bytes program, const Headers& headers) {
  const Bytes resources = AtAddress(program, headers, headers.resourceAddress);
  std::optional<std::uint32_t> found = FindEntry(resources, 0, kVersionType);
  // A fixed depth, so that a folder which contains itself cannot keep the search going.
  for (int level = 0; level < 2; ++level) {
    if (!found || (*found & kIsFolder) == 0) return {};
    found = FindEntry(resources, *found & ~kIsFolder, std::nullopt);
  }
  if (!found || (*found & kIsFolder) != 0) return {};
  const Bytes content = AtAddress(program, headers, U32(resources, *found));
  return Part(content, 0, U32(resources, std::size_t{*found} + 4));
}

bool HasInfoKey(Bytes info) {
  for (std::size_t i = 0; i < kInfoKey.size(); ++i) {
    if (U16(info, 6 + i * 2) != kInfoKey[i]) return false;
  }
  return true;
}

}  // namespace

int CompareVersionNumbers(std::wstring_view a, std::wstring_view b) {
  std::vector<std::int64_t> numbersOfA = NumbersOf(a);
  std::vector<std::int64_t> numbersOfB = NumbersOf(b);
  const std::size_t positions = std::max(numbersOfA.size(), numbersOfB.size());
  numbersOfA.resize(positions, 0);
  numbersOfB.resize(positions, 0);
  if (numbersOfA == numbersOfB) return 0;
  return numbersOfA < numbersOfB ? -1 : 1;
}

int CompareVersions(std::wstring_view a, std::wstring_view b) {
  const int byNumbers = CompareVersionNumbers(a, b);
  if (byNumbers != 0) return byNumbers;
  return text::FoldCase(a).compare(text::FoldCase(b));
}

std::optional<FileVersion> ReadFileVersion(std::span<const std::byte> program) {
  const std::optional<Headers> headers = ReadHeaders(program);
  if (!headers) return std::nullopt;
  const Bytes info = VersionResource(program, *headers);
  constexpr std::size_t kFixedInfo = 40;  // three lengths, the key, its zero, padding to four
  constexpr std::size_t kFixedInfoBytes = 52;
  const Bytes fixed = Part(info, kFixedInfo, kFixedInfoBytes);
  if (!HasInfoKey(info) || U32(fixed, 0) != kFixedInfoSignature) return std::nullopt;
  const auto part = [fixed](std::size_t offset) {
    return static_cast<std::uint16_t>(U16(fixed, offset));
  };
  return FileVersion{part(10), part(8), part(14), part(12)};
}

std::wstring FileVersionText(const FileVersion& version) {
  std::wstring text;
  for (const std::uint16_t number : version) {
    if (!text.empty()) text += L'.';
    text += std::to_wstring(number);
  }
  return text;
}

bool IsHigher(const FileVersion& version, std::wstring_view current) {
  return CompareVersionNumbers(FileVersionText(version), current) > 0;
}

}  // namespace update
