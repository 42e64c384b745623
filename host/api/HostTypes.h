#pragma once

#include <cstdint>
#include <string>
#include <variant>

namespace quorel::host {

// A field value as the host hands it out: Null, a number or a text.
using Value = std::variant<std::monostate, double, std::string>;

inline bool IsNull(const Value& value) {
    return std::holds_alternative<std::monostate>(value);
}

// Field type codes as the host numbers them; 0 to 3 are the numeric types.
enum FieldTypeCode : std::int32_t {
    kFieldTypeSmallInteger = 0,
    kFieldTypeInteger = 1,
    kFieldTypeSingle = 2,
    kFieldTypeDouble = 3,
    kFieldTypeString = 4,
    kFieldTypeDate = 5,
    kFieldTypeOID = 6,
    kFieldTypeGeometry = 7,
};

// Geometry type codes; 4 is the polygon.
enum GeometryTypeCode : std::int32_t {
    kGeometryNull = 0,
    kGeometryPoint = 1,
    kGeometryMultipoint = 2,
    kGeometryPolyline = 3,
    kGeometryPolygon = 4,
};

// A class or interface identifier, given by its text ("esriEditor.Editor" or a GUID in braces).
struct UID {
    std::string Value;
};

// Interface ids IMap::Layers understands: every layer, feature layers, group layers.
inline constexpr const char* kLayerInterfaceId = "{34C20002-4D3C-11D0-92D8-00805F7C28B0}";
inline constexpr const char* kFeatureLayerInterfaceId = "{40A9E885-5533-11D0-98BE-00805F7CED21}";
inline constexpr const char* kGroupLayerInterfaceId = "{EDAD6644-1810-11D1-86AE-0000F8751720}";
// The editor extension, by its ProgID (what the component passes) or its class id.
inline constexpr const char* kEditorExtensionId = "esriEditor.Editor";
inline constexpr const char* kEditorClassId = "{F8842F20-BB23-11D0-802B-0000F8037368}";

// Edit states of the editor extension.
inline constexpr std::int32_t kEditStateNotEditing = 0;
inline constexpr std::int32_t kEditStateEditing = 1;

} // namespace quorel::host
