// The GeoPackage's minimal SQL functions over its geometry blobs: a header ("GP", version, flags,
// srs id, optional envelope) then the geometry in well-known binary. A GeoPackage's triggers
// call them (the R-tree index's at every update of a feature's row), so a connection that has
// not registered them cannot even prepare an UPDATE of the table.

#include "host/gpkg/Sqlite.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <string>

namespace quorel::host::gpkg {
namespace {

struct Bounds {
    double minX = std::numeric_limits<double>::infinity();
    double maxX = -std::numeric_limits<double>::infinity();
    double minY = std::numeric_limits<double>::infinity();
    double maxY = -std::numeric_limits<double>::infinity();
    bool Empty() const { return minX > maxX; }
    void Add(double x, double y) {
        if (std::isnan(x) || std::isnan(y)) {
            return; // an empty point is written as NaN NaN
        }
        minX = std::min(minX, x);
        maxX = std::max(maxX, x);
        minY = std::min(minY, y);
        maxY = std::max(maxY, y);
    }
};

// Reads within the blob; any read past its end fails the whole parse.
class Reader {
public:
    Reader(const unsigned char* data, std::size_t size) : m_data(data), m_size(size) {}

    bool Skip(std::size_t bytes) {
        if (m_size - m_at < bytes) {
            return false;
        }
        m_at += bytes;
        return true;
    }
    bool Byte(std::uint8_t& value) {
        if (m_at >= m_size) {
            return false;
        }
        value = m_data[m_at++];
        return true;
    }
    bool UInt32(bool little, std::uint32_t& value) {
        unsigned char bytes[4];
        if (!Bytes(bytes, 4)) {
            return false;
        }
        value = little ? (bytes[0] | bytes[1] << 8 | bytes[2] << 16 |
                          static_cast<std::uint32_t>(bytes[3]) << 24)
                       : (bytes[3] | bytes[2] << 8 | bytes[1] << 16 |
                          static_cast<std::uint32_t>(bytes[0]) << 24);
        return true;
    }
    bool Double(bool little, double& value) {
        unsigned char bytes[8];
        if (!Bytes(bytes, 8)) {
            return false;
        }
        std::uint64_t bits = 0;
        for (int i = 0; i < 8; ++i) {
            bits |= static_cast<std::uint64_t>(bytes[little ? i : 7 - i]) << (8 * i);
        }
        std::memcpy(&value, &bits, sizeof value);
        return true;
    }
    std::size_t Remaining() const { return m_size - m_at; }

private:
    bool Bytes(unsigned char* out, std::size_t count) {
        if (m_size - m_at < count) {
            return false;
        }
        std::memcpy(out, m_data + m_at, count);
        m_at += count;
        return true;
    }

    const unsigned char* m_data;
    std::size_t m_size;
    std::size_t m_at = 0;
};

struct WkbType {
    std::uint32_t base = 0;
    int dimensions = 2;
};

bool ReadType(Reader& reader, bool& little, WkbType& type) {
    std::uint8_t order = 0;
    std::uint32_t code = 0;
    if (!reader.Byte(order) || order > 1) {
        return false;
    }
    little = order == 1;
    if (!reader.UInt32(little, code)) {
        return false;
    }
    // ISO codes (1000 Z, 2000 M, 3000 ZM) and the extended flags some writers use.
    int dimensions = 2 + ((code & 0x80000000U) ? 1 : 0) + ((code & 0x40000000U) ? 1 : 0);
    code &= 0x0FFFFFFFU;
    const std::uint32_t iso = code / 1000;
    if (iso == 1 || iso == 2) {
        dimensions = 3;
    } else if (iso == 3) {
        dimensions = 4;
    }
    type = {code % 1000, dimensions};
    return true;
}

bool ReadPoints(Reader& reader, bool little, int dimensions, Bounds& bounds) {
    std::uint32_t count = 0;
    if (!reader.UInt32(little, count) ||
        count > reader.Remaining() / (8 * static_cast<std::size_t>(dimensions))) {
        return false;
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        double x = 0;
        double y = 0;
        if (!reader.Double(little, x) || !reader.Double(little, y) ||
            !reader.Skip(8 * static_cast<std::size_t>(dimensions - 2))) {
            return false;
        }
        bounds.Add(x, y);
    }
    return true;
}

bool ReadGeometry(Reader& reader, Bounds& bounds, int depth) {
    bool little = true;
    WkbType type;
    if (depth > 32 || !ReadType(reader, little, type)) {
        return false;
    }
    switch (type.base) {
    case 1: { // point
        double x = 0;
        double y = 0;
        if (!reader.Double(little, x) || !reader.Double(little, y) ||
            !reader.Skip(8 * static_cast<std::size_t>(type.dimensions - 2))) {
            return false;
        }
        bounds.Add(x, y);
        return true;
    }
    case 2: // line string
    case 8: // circular string
        return ReadPoints(reader, little, type.dimensions, bounds);
    case 3:    // polygon
    case 17: { // triangle
        std::uint32_t rings = 0;
        if (!reader.UInt32(little, rings)) {
            return false;
        }
        for (std::uint32_t i = 0; i < rings; ++i) {
            if (!ReadPoints(reader, little, type.dimensions, bounds)) {
                return false;
            }
        }
        return true;
    }
    default: { // collections of geometries: multi-*, compound curve, curve polygon, surfaces
        if (type.base < 4 || type.base > 16) {
            return false;
        }
        std::uint32_t parts = 0;
        if (!reader.UInt32(little, parts)) {
            return false;
        }
        for (std::uint32_t i = 0; i < parts; ++i) {
            if (!ReadGeometry(reader, bounds, depth + 1)) {
                return false;
            }
        }
        return true;
    }
    }
}

// The parts of a GeoPackage geometry blob that the functions read.
struct Header {
    bool empty = false;
    std::int32_t srsId = 0;
    std::optional<Bounds> envelope;
    const unsigned char* wkb = nullptr;
    std::size_t wkbSize = 0;
};

std::optional<Header> ReadHeader(sqlite3_value* value) {
    if (sqlite3_value_type(value) != SQLITE_BLOB) {
        return std::nullopt;
    }
    const auto* data = static_cast<const unsigned char*>(sqlite3_value_blob(value));
    const auto size = static_cast<std::size_t>(sqlite3_value_bytes(value));
    if (size < 8 || data[0] != 'G' || data[1] != 'P') {
        return std::nullopt;
    }
    const std::uint8_t flags = data[3];
    const bool little = (flags & 0x01) != 0;
    const int envelopeKind = (flags >> 1) & 0x07;
    static constexpr std::size_t kEnvelopeBytes[] = {0, 32, 48, 48, 64};
    if (envelopeKind > 4 || size < 8 + kEnvelopeBytes[envelopeKind]) {
        return std::nullopt;
    }
    Header header;
    header.empty = (flags & 0x10) != 0;
    Reader reader(data + 4, size - 4);
    std::uint32_t srs = 0;
    reader.UInt32(little, srs);
    header.srsId = static_cast<std::int32_t>(srs);
    if (envelopeKind != 0) {
        Bounds bounds;
        reader.Double(little, bounds.minX);
        reader.Double(little, bounds.maxX);
        reader.Double(little, bounds.minY);
        reader.Double(little, bounds.maxY);
        header.envelope = bounds;
    }
    header.wkb = data + 8 + kEnvelopeBytes[envelopeKind];
    header.wkbSize = size - 8 - kEnvelopeBytes[envelopeKind];
    return header;
}

// The geometry's bounds: the header's envelope, else read from the geometry itself (points
// usually have none).
std::optional<Bounds> BoundsOf(sqlite3_value* value) {
    const auto header = ReadHeader(value);
    if (!header || header->empty) {
        return std::nullopt;
    }
    if (header->envelope) {
        return header->envelope;
    }
    Bounds bounds;
    Reader reader(header->wkb, header->wkbSize);
    if (!ReadGeometry(reader, bounds, 0) || bounds.Empty()) {
        return std::nullopt;
    }
    return bounds;
}

template <double Bounds::*Member>
void BoundFunction(sqlite3_context* context, int, sqlite3_value** arguments) {
    const auto bounds = BoundsOf(arguments[0]);
    if (bounds) {
        sqlite3_result_double(context, (*bounds).*Member);
    } else {
        sqlite3_result_null(context);
    }
}

void IsEmpty(sqlite3_context* context, int, sqlite3_value** arguments) {
    const auto header = ReadHeader(arguments[0]);
    if (!header) {
        sqlite3_result_null(context);
        return;
    }
    bool empty = header->empty;
    if (!empty && !header->envelope) {
        Bounds bounds;
        Reader reader(header->wkb, header->wkbSize);
        empty = ReadGeometry(reader, bounds, 0) && bounds.Empty();
    }
    sqlite3_result_int(context, empty ? 1 : 0);
}

constexpr const char* kTypeNames[] = {
    "GEOMETRY",        "POINT",        "LINESTRING",         "POLYGON",        "MULTIPOINT",
    "MULTILINESTRING", "MULTIPOLYGON", "GEOMETRYCOLLECTION", "CIRCULARSTRING", "COMPOUNDCURVE",
    "CURVEPOLYGON",    "MULTICURVE",   "MULTISURFACE",       "CURVE",          "SURFACE"};

void GeometryType(sqlite3_context* context, int, sqlite3_value** arguments) {
    const auto header = ReadHeader(arguments[0]);
    Reader reader(header ? header->wkb : nullptr, header ? header->wkbSize : 0);
    bool little = true;
    WkbType type;
    if (!header || !ReadType(reader, little, type) ||
        type.base >= sizeof kTypeNames / sizeof kTypeNames[0]) {
        sqlite3_result_null(context);
        return;
    }
    sqlite3_result_text(context, kTypeNames[type.base], -1, SQLITE_STATIC);
}

void Srid(sqlite3_context* context, int, sqlite3_value** arguments) {
    const auto header = ReadHeader(arguments[0]);
    if (header) {
        sqlite3_result_int(context, header->srsId);
    } else {
        sqlite3_result_null(context);
    }
}

std::string Upper(sqlite3_value* value) {
    const auto* text = sqlite3_value_text(value);
    std::string upper = text ? reinterpret_cast<const char*>(text) : "";
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return upper;
}

// Whether a geometry of type `actual` may go in a column declared `expected`.
void IsAssignable(sqlite3_context* context, int, sqlite3_value** arguments) {
    const std::string expected = Upper(arguments[0]);
    const std::string actual = Upper(arguments[1]);
    auto among = [&](std::initializer_list<const char*> types) {
        return std::any_of(types.begin(), types.end(), [&](const char* t) { return actual == t; });
    };
    const bool assignable =
        expected == actual || expected == "GEOMETRY" ||
        (expected == "GEOMETRYCOLLECTION" &&
         among({"MULTIPOINT", "MULTILINESTRING", "MULTIPOLYGON", "MULTICURVE", "MULTISURFACE"})) ||
        (expected == "CURVE" && among({"LINESTRING", "CIRCULARSTRING", "COMPOUNDCURVE"})) ||
        (expected == "SURFACE" && among({"POLYGON", "CURVEPOLYGON"})) ||
        (expected == "CURVEPOLYGON" && actual == "POLYGON") ||
        (expected == "COMPOUNDCURVE" && among({"LINESTRING", "CIRCULARSTRING"})) ||
        (expected == "MULTICURVE" && actual == "MULTILINESTRING") ||
        (expected == "MULTISURFACE" && actual == "MULTIPOLYGON");
    sqlite3_result_int(context, assignable ? 1 : 0);
}

} // namespace

void RegisterGeoPackageFunctions(sqlite3* db) {
    struct Function {
        const char* name;
        int arguments;
        void (*call)(sqlite3_context*, int, sqlite3_value**);
    };
    static constexpr Function kFunctions[] = {
        {"ST_IsEmpty", 1, IsEmpty},
        {"ST_MinX", 1, BoundFunction<&Bounds::minX>},
        {"ST_MaxX", 1, BoundFunction<&Bounds::maxX>},
        {"ST_MinY", 1, BoundFunction<&Bounds::minY>},
        {"ST_MaxY", 1, BoundFunction<&Bounds::maxY>},
        {"ST_GeometryType", 1, GeometryType},
        {"ST_SRID", 1, Srid},
        {"GPKG_IsAssignable", 2, IsAssignable},
    };
    for (const Function& function : kFunctions) {
        sqlite3_create_function_v2(db, function.name, function.arguments,
                                   SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS, nullptr,
                                   function.call, nullptr, nullptr, nullptr);
    }
}

} // namespace quorel::host::gpkg
