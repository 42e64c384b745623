#include "fzy/IO_fzyext.h"

#include "util/AutomationDate.h"
#include "util/CodePage.h"
#include "util/Error.h"
#include "util/FileReplacement.h"
#include "util/NumberText.h"
#include "util/StringFunctions.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>

namespace quorel::fzy {
namespace {

constexpr const char* kSource = "IO_fzyext";
constexpr std::int16_t kMaxFileNumber = 511;

[[noreturn]] void ThrowOverflow() {
    throw Error(error_number::kOverflow, kSource, "Overflow");
}

std::string Int16Text(std::int16_t value) {
    return std::to_string(value);
}

// Writes all bytes at an offset or throws the file error.
void WriteAllAt(int fd, std::int64_t offset, std::span<const std::uint8_t> bytes,
                const std::string& path) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = pwrite(fd, bytes.data() + done, bytes.size() - done,
                                       static_cast<off_t>(offset) + static_cast<off_t>(done));
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw FileError(errno, kSource, path);
        }
        done += static_cast<std::size_t>(written);
    }
}

// Owns one descriptor of a file we create or replace.
class Descriptor {
public:
    Descriptor(const std::string& path, int flags) : m_fd(open(path.c_str(), flags, 0666)) {
        if (m_fd < 0) {
            throw FileError(errno, kSource, path);
        }
    }
    ~Descriptor() { Close(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int Get() const { return m_fd; }
    void Close() {
        if (m_fd >= 0) {
            close(m_fd);
            m_fd = -1;
        }
    }

private:
    int m_fd;
};

// Every ".shp" goes, and the extension in any letter case: "PARC.SHP" has its metadata in
// PARC.fzy, where the run writes it.
std::string RemoveShp(const std::string& name) {
    static const std::string kShp = ".shp";
    std::string result;
    std::size_t start = 0;
    for (;;) {
        const auto found = name.find(kShp, start);
        if (found == std::string::npos) {
            result.append(name, start, std::string::npos);
            break;
        }
        result.append(name, start, found - start);
        start = found + kShp.size();
    }
    const auto sameLetter = [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) == static_cast<unsigned char>(b);
    };
    if (result.size() >= kShp.size() &&
        std::equal(result.end() - static_cast<std::ptrdiff_t>(kShp.size()), result.end(),
                   kShp.begin(), sameLetter)) {
        result.resize(result.size() - kShp.size());
    }
    return result;
}

} // namespace

std::string MetadataFilePath(const std::string& folder, const std::string& name) {
    return folder + "/" + RemoveShp(name) + ".fzy";
}

bool MetadataFileWritable(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        return true; // created by the run
    }
    return ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
}

std::string JoinFolder(const std::string& folder, const std::string& name) {
    const bool windowsFolder =
        folder.find('\\') != std::string::npos && folder.find('/') == std::string::npos;
    return folder + (windowsFolder ? "\\" : "/") + name;
}

// One open metadata file: reads never go past its end, writes go where they are told.
class IO_fzyext::OpenFile final : public IByteSource {
public:
    explicit OpenFile(std::string path, bool writable = true)
        : m_path(std::move(path)),
          m_descriptor(m_path, writable ? O_RDWR | O_CREAT | O_CLOEXEC : O_RDONLY | O_CLOEXEC) {}

    void Read(std::int64_t offset, std::span<std::uint8_t> out) const override {
        std::size_t done = 0;
        while (done < out.size()) {
            if (offset < 0) {
                break;
            }
            const ssize_t got = pread(m_descriptor.Get(), out.data() + done, out.size() - done,
                                      static_cast<off_t>(offset) + static_cast<off_t>(done));
            if (got < 0) {
                if (errno == EINTR) {
                    continue;
                }
                throw FileError(errno, kSource, m_path);
            }
            if (got == 0) {
                break;
            }
            done += static_cast<std::size_t>(got);
        }
        if (done < out.size()) {
            throw Error(error_number::kInputPastEnd, kSource, "Input past end of file");
        }
    }

    void Write(std::int64_t offset, std::span<const std::uint8_t> bytes) {
        WriteAllAt(m_descriptor.Get(), offset, bytes, m_path);
    }

    void WriteInt16(std::int64_t offset, std::int16_t value) {
        ByteWriter writer;
        writer.WriteInt16(value);
        Write(offset, writer.Bytes());
    }

    std::int64_t Size() const {
        struct stat status {};
        if (fstat(m_descriptor.Get(), &status) != 0) {
            throw FileError(errno, kSource, m_path);
        }
        return status.st_size;
    }

    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
    Descriptor m_descriptor;
};

IO_fzyext::IO_fzyext(util::IMessageUi& ui, const util::ITextSource& texts, IInfoWindow& window,
                     std::shared_ptr<host::IApplication> app, Clock clock)
    : m_ui(ui), m_texts(texts), m_window(window), m_app(std::move(app)), m_clock(std::move(clock)) {
}

IO_fzyext::~IO_fzyext() = default;

IO_fzyext::OpenFile& IO_fzyext::File(std::int16_t handle) const {
    const auto it = m_files.find(handle);
    if (it == m_files.end()) {
        throw Error(error_number::kBadFileNameOrNumber, kSource, "Bad file name or number");
    }
    return *it->second;
}

const std::string& IO_fzyext::OpenFilePath() const {
    return File(m_fileNumber).Path();
}

std::int16_t IO_fzyext::FreeFile() const {
    for (std::int16_t handle = 1; handle <= kMaxFileNumber; ++handle) {
        if (m_files.count(handle) == 0) {
            return handle;
        }
    }
    throw Error(error_number::kBadFileNameOrNumber, kSource, "Too many files");
}

void IO_fzyext::ShowLocalError(const std::exception& error, const char* label, int step) noexcept {
    try {
        std::string text;
        if (const auto* own = dynamic_cast<const Error*>(&error)) {
            text = std::to_string(own->Number()) + "  " + own->Description();
        } else {
            text = std::to_string(error_number::kInternalError) + "  " + error.what();
        }
        m_ui.MessageBox(text + label + std::to_string(step), util::MessageIcon::None);
    } catch (...) {
    }
}

std::int16_t IO_fzyext::fzy_io_open(const std::string& folder, std::string& name) {
    name = RemoveShp(name);
    const std::int16_t handle = FreeFile();
    auto file = std::make_unique<OpenFile>(folder + "/" + name + ".fzy");
    if (file->Size() >= kSmallestOldFile) {
        m_fileStatus = "Old";
        ByteReader reader(*file, 2);
        m_recordCount = reader.ReadInt16();
        m_numberCount = reader.ReadInt16();
        m_deletedCount = reader.ReadInt16();
    } else {
        m_fileStatus = "New";
        m_recordCount = 0;
        m_numberCount = 0;
        m_deletedCount = 0;
        FzyHeader header;
        auto bytes = EncodeHeader(header);
        bytes.resize(8);
        file->Write(0, bytes);
    }
    m_files[handle] = std::move(file);
    m_fileNumber = handle;
    return 0;
}

bool IO_fzyext::fzy_io_openread(const std::string& folder, std::string& name) {
    name = RemoveShp(name);
    const std::string path = folder + "/" + name + ".fzy";
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        const int reason = errno;
        // No file yet is nothing recorded; a folder that is gone is an error, as when opening.
        struct stat folderStatus {};
        if (reason == ENOENT && stat(folder.c_str(), &folderStatus) == 0 &&
            S_ISDIR(folderStatus.st_mode)) {
            return false;
        }
        throw FileError(reason, kSource, path);
    }
    const std::int16_t handle = FreeFile();
    auto file = std::make_unique<OpenFile>(path, false);
    if (file->Size() < kSmallestOldFile) {
        return false;
    }
    ByteReader reader(*file, 2);
    m_recordCount = reader.ReadInt16();
    m_numberCount = reader.ReadInt16();
    m_deletedCount = reader.ReadInt16();
    m_fileStatus = "Old";
    m_files[handle] = std::move(file);
    m_fileNumber = handle;
    return true;
}

std::int16_t IO_fzyext::fzy_io_close() {
    m_files.erase(m_fileNumber);
    return 1;
}

std::string IO_fzyext::fzy_io_readtext(std::int16_t count, std::int16_t offset) {
    ByteReader reader(File(m_fileNumber), offset, true);
    return reader.ReadTextBytes(count);
}

std::int16_t IO_fzyext::fzy_io_writenumber(const std::string& fieldName,
                                           const std::string& aliasName, std::int16_t kind,
                                           double a, double b, double c, double d,
                                           const std::string& folder,
                                           const std::string& shapeName) {
    OpenFile& file = File(m_fileNumber);
    const std::int64_t start = m_fileStatus == "New" ? kHeaderSize : file.Size();
    NumberEntry entry{fieldName, kind, aliasName, a,         b,
                      c,         d,    folder,    shapeName, util::ToAutomationDate(m_clock()),
                      kEndMark};

    // Field by field, as far as the size limit allows: a cut entry is never counted.
    std::int64_t end = start;
    auto writePiece = [&](std::span<const std::uint8_t> piece) {
        const std::int64_t pieceEnd = end + static_cast<std::int64_t>(piece.size());
        if (pieceEnd > kMaxFileSize) {
            ThrowOverflow();
        }
        file.Write(end, piece);
        end = pieceEnd;
    };
    ByteWriter frame;
    frame.WriteInt16(2);
    frame.WriteInt16(kNumberEntryKind);
    writePiece(frame.Bytes());
    for (const auto& piece : NumberBodyPieces(entry)) {
        writePiece(piece);
    }
    file.WriteInt16(start, static_cast<std::int16_t>(end - start));
    m_numberCount = Add16(m_numberCount, 1);
    file.WriteInt16(4, m_numberCount);
    return 1;
}

bool IO_fzyext::NumberEntryFits(const std::string& fieldName, const std::string& aliasName,
                                const std::string& folder, const std::string& shapeName) const {
    const OpenFile& file = File(m_fileNumber);
    NumberEntry entry;
    entry.FieldName = fieldName;
    entry.AliasName = aliasName;
    entry.Folder = folder;
    entry.ShapeName = shapeName;
    const std::int64_t start = m_fileStatus == "New" ? kHeaderSize : file.Size();
    // The counts as the append will raise them, and as every walk will add them up.
    ByteReader counts(file, 2);
    const std::int64_t recordCount = counts.ReadInt16();
    const std::int64_t numberCount = counts.ReadInt16();
    constexpr std::int64_t kMaxCount = std::numeric_limits<std::int16_t>::max();
    return start + NumberEntryLength(entry) <= kMaxFileSize && numberCount < kMaxCount &&
           recordCount + numberCount < kMaxCount;
}

char IO_fzyext::DecimalMark() const {
    return m_decimalMark ? *m_decimalMark : util::DecimalSeparator();
}

std::string IO_fzyext::NumberDescription(const NumberEntry& entry) const {
    return FormatNumberDescription(m_texts, DecimalMark(), entry,
                                   util::FormatGeneralDate(entry.Created));
}

std::string FormatNumberDescription(const util::ITextSource& texts, char decimalMark,
                                    const NumberEntry& entry, const std::string& created) {
    const std::string kindText = texts.ResourceString(154);
    std::string text = texts.ResourceString(147) + " " + entry.FieldName + "(" +
                       texts.ResourceString(148) + " :" + entry.AliasName + ") " + kindText + " " +
                       Int16Text(entry.NumberKind) + " " + kindText + " :\r\n";
    text += " Val_a = " + util::FormatNumber(entry.A, decimalMark) + "\r\n";
    text += " Val_b = " + util::FormatNumber(entry.B, decimalMark) + "\r\n";
    text += " Val_c = " + util::FormatNumber(entry.C, decimalMark) + "\r\n";
    text += " Val_d = " + util::FormatNumber(entry.D, decimalMark) + "\r\n";
    text += texts.ResourceString(152) + " " + JoinFolder(entry.Folder, entry.ShapeName) + " " +
            texts.ResourceString(156) + " " + created;
    return text;
}

std::string FormatNumberDescription(const util::ITextSource& texts, char decimalMark,
                                    const host::CriterionRecord& record,
                                    const std::string& database) {
    NumberEntry entry;
    entry.FieldName = record.column;
    entry.AliasName = record.column;
    entry.NumberKind = record.kind;
    entry.A = record.a;
    entry.B = record.b;
    entry.C = record.c;
    entry.D = record.d;
    entry.Folder = database;
    entry.ShapeName = record.table;
    return FormatNumberDescription(texts, decimalMark, entry, record.created);
}

std::string IO_fzyext::RecordDescription(const RecordEntry& entry) const {
    const std::string inText = Text(150);
    std::string text = Text(147) + " " + entry.FieldName + " (" + Text(148) + " :" +
                       entry.AliasName + ") " + Text(149) + " : \r\n";
    text += entry.Field1 + " (" + inText + " " + JoinFolder(entry.Folder1, entry.Shape1) + ")\r\n";
    text += Text(151) + " \r\n";
    text += entry.Field2 + " (" + inText + " " + JoinFolder(entry.Folder2, entry.Shape2) + ").\r\n";
    text += " " + Text(152) + " " + Int16Text(entry.Code) + " " + Text(156) + " " +
            util::FormatGeneralDate(entry.Created);
    return text;
}

bool IO_fzyext::fzy_io_numberinfo(const std::string& fieldName) {
    int step = 0;
    try {
        m_numberFound = 0;
        step = 1;
        const OpenFile& file = File(m_fileNumber);
        ByteReader counts(file, 2, true);
        const std::int16_t recordCount = counts.ReadInt16();
        const std::int16_t numberCount = counts.ReadInt16();
        const std::int16_t total = EntriesToWalk(recordCount, numberCount);
        std::int16_t position = static_cast<std::int16_t>(kHeaderSize);
        for (std::int16_t i = 0; i < total; ++i) {
            ByteReader reader(file, position, true);
            step = 2;
            const FzyEntryFrame frame = ReadFrame(reader);
            if (frame.EntryKind == kNumberEntryKind) {
                step = 3;
                bool matches = false;
                const NumberEntry entry = ReadNumberBody(reader, [&](const FzyFieldRead& field) {
                    const std::string_view name = field.name;
                    if (name == "FieldName" && !field.lengthOnly) {
                        matches = SameStoredName(fieldName, *field.text);
                        return matches;
                    }
                    if (field.lengthOnly) {
                        step = name == "Folder" ? 4 : name == "ShapeName" ? 5 : step;
                    }
                    return name != "Created"; // the end mark is not read
                });
                if (matches) {
                    step = 6;
                    m_infoText = NumberDescription(entry);
                    m_numberFound = 1;
                } else {
                    step = 7;
                }
                step = 8;
            }
            position = Add16(position, frame.Length);
        }
        step = 9;
        return m_numberFound == 1;
    } catch (const std::exception& error) {
        ShowLocalError(error, " fzy_io_numberinfo Debug=", step);
        return false;
    }
}

bool IO_fzyext::fzy_io_recordinfo(const std::string& fieldName, const std::string& /*ignored*/) {
    if (fieldName.empty()) {
        return false;
    }
    int step = 0;
    bool found = false;
    try {
        step = 1;
        const OpenFile& file = File(m_fileNumber);
        ByteReader counts(file, 2);
        m_recordCount = counts.ReadInt16();
        m_numberCount = counts.ReadInt16();
        m_deletedCount = counts.ReadInt16();
        const std::int16_t total = EntriesToWalk(m_recordCount, m_numberCount);
        std::int64_t position = kHeaderSize;
        for (std::int16_t i = 0; i < total && !found; ++i) {
            ByteReader reader(file, position);
            step = 2;
            const FzyEntryFrame frame = ReadFrame(reader);
            if (frame.EntryKind == kRecordEntryKind) {
                step = 3;
                bool matches = false;
                const RecordEntry entry = ReadRecordBody(reader, [&](const FzyFieldRead& field) {
                    const std::string_view name = field.name;
                    if (field.lengthOnly) {
                        return true;
                    }
                    if (name == "FieldName") {
                        matches = SameStoredName(fieldName, *field.text);
                        return matches;
                    }
                    step = name == "Text4" ? 4 : name == "Shape1" ? 5 : step;
                    return true;
                });
                if (matches) {
                    found = true;
                    step = 6;
                    m_infoText = RecordDescription(entry);
                    break;
                }
            }
            position += frame.Length;
        }
        step = 7;
        return found;
    } catch (const std::exception& error) {
        ShowLocalError(error, " fzy_io_recordinfo Debug=", step);
        return step >= 6 && found;
    }
}

bool IO_fzyext::fzy_io_check(const std::string& fieldName, const std::string& layerName) {
    int step = 0;
    try {
        step = 1;
        auto require = [](auto pointer, const char* what) {
            if (!pointer) {
                throw Error(error_number::kObjectRequired, kSource,
                            std::string("Object required: ") + what);
            }
            return pointer;
        };
        const auto document = require(m_app, "application")->Document();
        const auto map = require(document, "document")->FocusMap();
        const std::int32_t layerCount = require(map, "focus map")->LayerCount();
        step = 1;
        std::shared_ptr<host::ILayer> chosen;
        for (std::int32_t i = 0; i < layerCount && !chosen; ++i) {
            auto layer = require(map->Layer(i), "layer");
            if (layer->Name() == layerName) {
                chosen = layer;
            }
        }
        if (!chosen) {
            // A renamed layer or an empty map says nothing about the field: keep the entry.
            return true;
        }
        step = 2;
        const auto featureLayer = std::dynamic_pointer_cast<host::IFeatureLayer>(chosen);
        if (!featureLayer) {
            throw Error(error_number::kTypeMismatch, kSource, "Type mismatch");
        }
        const auto featureClass = require(featureLayer->FeatureClass(), "feature class");
        const auto fields = require(featureClass->Fields(), "fields");
        step = 3;
        const std::int32_t fieldCount = fields->FieldCount();
        for (std::int32_t i = 0; i < fieldCount; ++i) {
            if (SameStoredName(require(fields->Field(i), "field")->Name(), fieldName)) {
                return true;
            }
        }
        return false;
    } catch (const std::exception& error) {
        // Not knowing is no reason to lose the entry.
        ShowLocalError(error, " fzy_io_check Debug=", step);
        return true;
    }
}

std::optional<int> IO_fzyext::fzy_io_valid(const std::string& shapeName,
                                           const std::string& folder) {
    int step = 0;
    try {
        OpenFile& file = File(m_fileNumber);
        {
            ByteReader counts(file, 2);
            m_recordCount = counts.ReadInt16();
            m_numberCount = counts.ReadInt16();
            m_deletedCount = counts.ReadInt16();
        }
        step = 1;
        const std::int16_t total = EntriesToWalk(m_recordCount, m_numberCount);
        std::int64_t position = kHeaderSize;
        for (std::int16_t i = 0; i < total; ++i) {
            ByteReader reader(file, position);
            step = 2;
            const FzyEntryFrame frame = ReadFrame(reader);
            if (IsLiveKind(frame.EntryKind)) {
                step = 3;
                const std::string fieldName = reader.ReadText();
                if (!fzy_io_check(fieldName, shapeName)) {
                    file.WriteInt16(position + 2, Add16(frame.EntryKind, kDeletedKindStep));
                    m_deletedCount = Add16(m_deletedCount, 1);
                    file.WriteInt16(6, m_deletedCount);
                }
            }
            position += frame.Length;
        }
        ByteReader deleted(file, 6);
        m_deletedCount = deleted.ReadInt16();
        if (m_deletedCount > 0) {
            fzy_io_compressfzy(m_fileNumber, shapeName, folder);
        }
        return 1;
    } catch (const std::exception& error) {
        ShowLocalError(error, " fzy_io_valid Debug=", step);
        return std::nullopt;
    }
}

void IO_fzyext::fzy_io_compressfzy(std::int16_t handle, const std::string& shapeName,
                                   const std::string& folder) {
    int step = 0;
    try {
        step = 1;
        OpenFile& file = File(handle);
        // The whole compacted file is built in memory first, so that a corrupt file leaves
        // nothing behind; then it replaces the original in one step. The working counts change
        // only once it has: until then the next append must go on counting the file as it is.
        FzyHeader header = ReadHeader(file);
        step = 2;
        const std::int16_t total = EntriesToWalk(header.RecordCount, header.NumberCount);
        std::int16_t recordCount = 0;
        std::int16_t numberCount = 0;
        step = 3;
        std::vector<std::uint8_t> entries;
        std::int64_t position = kHeaderSize;
        for (std::int16_t i = 0; i < total; ++i) {
            ByteReader reader(file, position);
            step = 4;
            const FzyEntryFrame frame = ReadFrame(reader);
            if (IsLiveKind(frame.EntryKind)) {
                ByteReader whole(file, position);
                const auto bytes = whole.ReadBytes(frame.Length);
                entries.insert(entries.end(), bytes.begin(), bytes.end());
                step = 5;
                if (frame.EntryKind == kRecordEntryKind) {
                    recordCount = Add16(recordCount, 1);
                } else if (frame.EntryKind == kNumberEntryKind) {
                    numberCount = Add16(numberCount, 1);
                }
            }
            step = 6;
            position += frame.Length;
        }
        header.RecordCount = recordCount;
        header.NumberCount = numberCount;
        header.DeletedCount = 0;
        std::vector<std::uint8_t> compacted = EncodeHeader(header);
        compacted.insert(compacted.end(), entries.begin(), entries.end());
        step = 7;

        // A scratch file of its own, never the user's NAME.tmp; it keeps the file's owner and
        // mode.
        const std::string target = folder + "/" + shapeName + ".fzy";
        util::ReplaceFile(
            target,
            std::string_view(reinterpret_cast<const char*>(compacted.data()), compacted.size()),
            kSource);
        // The file on disk is the compacted one from here, whatever follows.
        m_recordCount = recordCount;
        m_numberCount = numberCount;
        m_deletedCount = 0;
        step = 9;
        // The handle's old file is gone: should the reopening fail, no write may go there.
        m_files.erase(handle);
        m_files[handle] = std::make_unique<OpenFile>(target);
        step = 10;
    } catch (const std::exception& error) {
        ShowLocalError(error, " fzy_io_compressfzy Debug=", step);
    }
}

void IO_fzyext::fzy_io_showinfo() {
    const std::string text = m_infoText.value_or(std::string());
    m_infoText = text;
    m_window.ShowModal(text);
    // Closing the window discards it; the next display starts with an empty text box.
    m_infoText.reset();
}

} // namespace quorel::fzy
