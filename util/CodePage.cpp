#include "util/CodePage.h"

#include "util/Error.h"

#include <cerrno>
#include <iconv.h>

namespace quorel::util {
namespace {

// Owns one iconv descriptor.
class IconvHandle {
public:
    IconvHandle(const char* to, const char* from) : m_cd(iconv_open(to, from)) {
        if (m_cd == reinterpret_cast<iconv_t>(-1)) {
            throw Error(error_number::kInvalidArgument, "CodePage",
                        std::string("No conversion from ") + from + " to " + to);
        }
    }
    ~IconvHandle() { iconv_close(m_cd); }
    IconvHandle(const IconvHandle&) = delete;
    IconvHandle& operator=(const IconvHandle&) = delete;

    // Converts the whole input; each unconvertible input sequence becomes '?'. skipLength tells
    // how many input bytes a bad sequence spans.
    template <typename SkipLength>
    std::string Convert(std::string_view input, SkipLength skipLength) {
        std::string out;
        out.reserve(input.size() * 2);
        char* in = const_cast<char*>(input.data());
        std::size_t inLeft = input.size();
        char buffer[256];
        iconv(m_cd, nullptr, nullptr, nullptr, nullptr);
        while (inLeft > 0) {
            char* outPtr = buffer;
            std::size_t outLeft = sizeof buffer;
            const std::size_t result = iconv(m_cd, &in, &inLeft, &outPtr, &outLeft);
            out.append(buffer, static_cast<std::size_t>(outPtr - buffer));
            if (result != static_cast<std::size_t>(-1)) {
                continue;
            }
            if (errno == E2BIG) {
                continue;
            }
            // EILSEQ or EINVAL: replace one input character and go on.
            const std::size_t skip = std::min(inLeft, skipLength(in, inLeft));
            in += skip;
            inLeft -= skip;
            out += '?';
        }
        return out;
    }

private:
    iconv_t m_cd;
};

std::size_t Utf8SequenceLength(const char* p, std::size_t left) {
    const auto lead = static_cast<unsigned char>(*p);
    std::size_t length = 1;
    if (lead >= 0xF0) {
        length = 4;
    } else if (lead >= 0xE0) {
        length = 3;
    } else if (lead >= 0xC0) {
        length = 2;
    }
    // Never skip past a byte that is not a continuation byte.
    std::size_t i = 1;
    while (i < length && i < left && (static_cast<unsigned char>(p[i]) & 0xC0) == 0x80) {
        ++i;
    }
    return i;
}

} // namespace

std::string Utf8ToWindows1252(std::string_view utf8) {
    IconvHandle handle("WINDOWS-1252", "UTF-8");
    return handle.Convert(utf8, Utf8SequenceLength);
}

std::string Windows1252ToUtf8(std::string_view bytes) {
    IconvHandle handle("UTF-8", "WINDOWS-1252");
    return handle.Convert(bytes, [](const char*, std::size_t) { return std::size_t{1}; });
}

} // namespace quorel::util
