#pragma once

// Quorel's component binary interface: the contract between a component (a shared library that
// exports the four entry points below) and any host that loads it.
//
// It follows the shape of an in-process COM server, reduced to what a GIS command needs:
// - GUIDs name classes and interfaces;
// - every object derives from IUnknown: reference counted (AddRef/Release), and asked for its
//   other interfaces by id (QueryInterface); an object hands out a pointer only after AddRef;
// - a class factory creates the objects of one class;
// - HRESULT-style result codes: 0 is success, negative values are failures.
// Interfaces are C++ abstract classes, so host and component must share one C++ ABI (the
// platform's GCC/Clang libstdc++ ABI on Linux); strings cross the boundary as UTF-8 std::string.
//
// Entry points (extern "C", looked up with dlsym):
//   HResult DllRegisterServer();   writes the component's classes to the class registry
//   HResult DllUnregisterServer(); removes them
//   HResult DllGetClassObject(const Guid* clsid, const Guid* iid, void** object);
//   HResult DllCanUnloadNow();     S_OK when no object of the component is alive, else S_FALSE

#include "host/api/Host.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace quorel::com {

using HResult = std::int32_t;

inline constexpr HResult kOk = 0;
inline constexpr HResult kFalse = 1;
inline constexpr HResult kNotImplemented = static_cast<HResult>(0x80004001u);
inline constexpr HResult kNoInterface = static_cast<HResult>(0x80004002u);
inline constexpr HResult kPointer = static_cast<HResult>(0x80004003u);
inline constexpr HResult kFail = static_cast<HResult>(0x80004005u);
inline constexpr HResult kUnexpected = static_cast<HResult>(0x8000FFFFu);
inline constexpr HResult kNoAggregation = static_cast<HResult>(0x80040110u);
inline constexpr HResult kClassNotAvailable = static_cast<HResult>(0x80040111u);
inline constexpr HResult kRegistrationFailed = static_cast<HResult>(0x80040201u);

inline bool Succeeded(HResult result) {
    return result >= 0;
}

struct Guid {
    std::uint32_t data1 = 0;
    std::uint16_t data2 = 0;
    std::uint16_t data3 = 0;
    std::array<std::uint8_t, 8> data4{};

    friend bool operator==(const Guid&, const Guid&) = default;
};

// Reads "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" (braces optional, either letter case).
constexpr std::optional<Guid> ParseGuid(std::string_view text) {
    if (text.size() == 38 && text.front() == '{' && text.back() == '}') {
        text = text.substr(1, 36);
    }
    if (text.size() != 36 || text[8] != '-' || text[13] != '-' || text[18] != '-' ||
        text[23] != '-') {
        return std::nullopt;
    }
    std::array<std::uint8_t, 16> bytes{};
    std::size_t n = 0;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        if (text[i] == '-') {
            --i;
            continue;
        }
        std::uint8_t byte = 0;
        for (std::size_t k = 0; k < 2; ++k) {
            const char c = text[i + k];
            std::uint8_t nibble = 0;
            if (c >= '0' && c <= '9') {
                nibble = static_cast<std::uint8_t>(c - '0');
            } else if (c >= 'a' && c <= 'f') {
                nibble = static_cast<std::uint8_t>(c - 'a' + 10);
            } else if (c >= 'A' && c <= 'F') {
                nibble = static_cast<std::uint8_t>(c - 'A' + 10);
            } else {
                return std::nullopt;
            }
            byte = static_cast<std::uint8_t>(byte * 16 + nibble);
        }
        bytes[n++] = byte;
    }
    Guid guid;
    guid.data1 = (std::uint32_t{bytes[0]} << 24) | (std::uint32_t{bytes[1]} << 16) |
                 (std::uint32_t{bytes[2]} << 8) | bytes[3];
    guid.data2 = static_cast<std::uint16_t>((bytes[4] << 8) | bytes[5]);
    guid.data3 = static_cast<std::uint16_t>((bytes[6] << 8) | bytes[7]);
    for (std::size_t i = 0; i < 8; ++i) {
        guid.data4[i] = bytes[8 + i];
    }
    return guid;
}

// Upper-case text in braces.
inline std::string FormatGuid(const Guid& guid) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string text = "{";
    auto put = [&](std::uint64_t value, int digits) {
        for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) {
            text += kHex[(value >> shift) & 0xF];
        }
    };
    put(guid.data1, 8);
    text += '-';
    put(guid.data2, 4);
    text += '-';
    put(guid.data3, 4);
    text += '-';
    for (std::size_t i = 0; i < 8; ++i) {
        if (i == 2) {
            text += '-';
        }
        put(guid.data4[i], 2);
    }
    return text + "}";
}

// A GUID constant from its text; an invalid text does not compile.
consteval Guid MakeGuid(std::string_view text) {
    return ParseGuid(text).value();
}

class IUnknown {
public:
    virtual HResult QueryInterface(const Guid& iid, void** object) = 0;
    virtual std::uint32_t AddRef() = 0;
    virtual std::uint32_t Release() = 0;

protected:
    ~IUnknown() = default; // objects are destroyed through Release, never through delete
};

class IClassFactory : public IUnknown {
public:
    // outer must be null: no aggregation.
    virtual HResult CreateInstance(IUnknown* outer, const Guid& iid, void** object) = 0;
    virtual HResult LockServer(bool lock) = 0;

protected:
    ~IClassFactory() = default;
};

// The item definition a host passes to IMenuDef::GetItemInfo.
class IItemDef {
public:
    virtual void SetID(const std::string& progId) = 0;
    virtual void SetGroup(bool startsGroup) = 0;
    virtual void SetSubType(std::int32_t subType) = 0;

protected:
    ~IItemDef() = default;
};

// A picture handed from a component to its host: 24-bit BGR rows, bottom-up as in a
// device-independent bitmap; width and height in pixels. An empty picture means none.
struct Picture {
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::string pixels; // width * height * 3 bytes
};

// A command: a button of the host's toolbars and menus.
class ICommand : public IUnknown {
public:
    virtual bool Enabled() = 0;
    virtual bool Checked() = 0;
    virtual std::string Name() = 0;
    virtual std::string Caption() = 0;
    virtual std::string Tooltip() = 0;
    virtual std::string Message() = 0;
    virtual std::string HelpFile() = 0;
    virtual std::int32_t HelpContextID() = 0;
    virtual Picture BitmapData() = 0;
    // The handle of the picture as a 32-bit number, 0 when there is none.
    virtual std::int32_t Bitmap() = 0;
    virtual std::string Category() = 0;
    // Called once after creation with the host's hook object (its application, a map
    // control, or anything else).
    virtual void OnCreate(IUnknown* hook) = 0;
    virtual void OnClick() = 0;

protected:
    ~ICommand() = default;
};

// A menu definition.
class IMenuDef : public IUnknown {
public:
    virtual std::string Caption() = 0;
    virtual std::string Name() = 0;
    virtual std::int32_t ItemCount() = 0;
    virtual void GetItemInfo(std::int32_t pos, IItemDef* itemDef) = 0;

protected:
    ~IMenuDef() = default;
};

// Marker: the menu may stand in the host's menu bar.
class IRootLevelMenu : public IUnknown {
protected:
    ~IRootLevelMenu() = default;
};

// What a host's hook object answers for IID_IApplication (and, for a host whose documents are
// maps, for IID_IMxApplication): the host application of the object model.
class IHostApplication : public IUnknown {
public:
    virtual std::shared_ptr<host::IApplication> Application() = 0;

protected:
    ~IHostApplication() = default;
};

// What a map control answers for IID_IMapControl: the map it shows.
class IMapControlHook : public IUnknown {
public:
    virtual std::shared_ptr<host::IMap> Map() = 0;

protected:
    ~IMapControlHook() = default;
};

// Interface identifiers.
inline constexpr Guid IID_IUnknown = MakeGuid("{00000000-0000-0000-C000-000000000046}");
inline constexpr Guid IID_IClassFactory = MakeGuid("{00000001-0000-0000-C000-000000000046}");
inline constexpr Guid IID_ICommand = MakeGuid("{B06FB466-1A0C-4A12-881C-BF78AC86C794}");
inline constexpr Guid IID_IMenuDef = MakeGuid("{67A8AC7B-5C7D-4163-8484-2406B14285FE}");
inline constexpr Guid IID_IRootLevelMenu = MakeGuid("{A9372CBB-0F49-40EC-B8AF-9CF0E94F8A73}");
inline constexpr Guid IID_IApplication = MakeGuid("{6B60F0BE-7F98-4DD1-9907-B8C37AF51743}");
inline constexpr Guid IID_IMxApplication = MakeGuid("{0522A5F2-487C-11D0-98BD-00805F7CED21}");
inline constexpr Guid IID_IMapControl = MakeGuid("{62C52249-8A87-4F7B-83F1-829064F5438E}");

} // namespace quorel::com

extern "C" {
quorel::com::HResult DllRegisterServer();
quorel::com::HResult DllUnregisterServer();
quorel::com::HResult DllGetClassObject(const quorel::com::Guid* clsid, const quorel::com::Guid* iid,
                                       void** object);
quorel::com::HResult DllCanUnloadNow();
}
