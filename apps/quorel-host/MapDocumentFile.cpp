#include "apps/quorel-host/MapDocumentFile.h"

#include "host/gpkg/GeoPackage.h"
#include "host/shapefile/Shapefile.h"
#include "source/OpenSource.h"
#include "util/Error.h"
#include "util/FileReplacement.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

namespace quorel::host_app {
namespace {

namespace fs = std::filesystem;
constexpr const char* kMagic = "quorel-map";
constexpr const char* kSource = "MapDocument";

std::vector<std::string> SplitTabs(const std::string& line) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    while (true) {
        const std::size_t tab = line.find('\t', start);
        parts.push_back(line.substr(start, tab - start));
        if (tab == std::string::npos) {
            return parts;
        }
        start = tab + 1;
    }
}

void CheckName(const std::string& name) {
    if (name.find_first_of("\t\r\n") != std::string::npos) {
        throw Error(error_number::kInvalidArgument, kSource,
                    "A name holds a tab or a line end: " + name);
    }
}

void WriteLayers(std::ostream& out, const host::ILayer& layer, const fs::path& folder) {
    CheckName(layer.Name());
    if (const auto* group = dynamic_cast<const host::IGroupLayer*>(&layer)) {
        out << "group\t" << layer.Name() << '\n';
        for (std::int32_t i = 0; i < group->Count(); ++i) {
            WriteLayers(out, *group->Layer(i), folder);
        }
        out << "end\n";
        return;
    }
    const auto* featureLayer = dynamic_cast<const host::IFeatureLayer*>(&layer);
    const auto featureClass = featureLayer == nullptr ? nullptr : featureLayer->FeatureClass();
    const auto shapefile =
        std::dynamic_pointer_cast<host::shapefile::ShapefileFeatureClass>(featureClass);
    const auto geoPackage =
        std::dynamic_pointer_cast<host::gpkg::GeoPackageFeatureClass>(featureClass);
    if (!shapefile && !geoPackage) {
        throw Error(error_number::kTypeMismatch, kSource,
                    "The layer " + layer.Name() + " is neither a shapefile nor a GeoPackage layer");
    }
    const fs::path data =
        fs::absolute(shapefile ? shapefile->ShpPath() : geoPackage->Path()).lexically_normal();
    const fs::path relative = data.lexically_relative(folder);
    out << "layer\t" << layer.Name() << '\t'
        << (relative.empty() ? data : relative).generic_string() << '\t'
        << (featureLayer->Selectable() ? "selectable" : "fixed");
    if (geoPackage) {
        CheckName(geoPackage->Table());
        out << '\t' << geoPackage->Table();
    }
    out << '\n';
}

class Reader {
public:
    Reader(host::IApplication& app, const std::string& path)
        : m_app(app), m_path(path), m_folder(fs::absolute(path).parent_path()) {}

    std::shared_ptr<host::map::MxDocument> Read() {
        std::ifstream in(m_path, std::ios::binary);
        if (!in) {
            throw FileError(errno, kSource, m_path);
        }
        auto document = std::make_shared<host::map::MxDocument>();
        std::shared_ptr<host::IMap> focus;
        std::shared_ptr<host::map::Map> map;
        std::vector<std::shared_ptr<host::map::GroupLayer>> groups;
        bool first = true;
        std::string line;
        while (std::getline(in, line)) {
            ++m_line;
            if (!line.empty() && line.back() == '\r') {
                line.pop_back();
            }
            if (line.empty() || line.front() == '#') {
                continue;
            }
            const auto parts = SplitTabs(line);
            if (first) {
                if (parts.size() != 2 || parts[0] != kMagic || parts[1] != "1") {
                    throw Fault("not a map document");
                }
                first = false;
                continue;
            }
            const std::string& kind = parts[0];
            if (kind == "map" && (parts.size() == 2 || parts.size() == 3)) {
                if (!groups.empty()) {
                    throw Fault("a map inside a group");
                }
                map = std::make_shared<host::map::Map>(parts[1]);
                if (m_maps++ == 0) {
                    // The document's own first map stands for the first one read.
                    map = std::dynamic_pointer_cast<host::map::Map>(document->FocusMap());
                    map->SetName(parts[1]);
                } else {
                    document->AddMap(map);
                }
                if (parts.size() == 3 && parts[2] == "focus") {
                    focus = map;
                }
            } else if (kind == "layer" && parts.size() == 5 && map) {
                auto layer = OpenTable(parts[2], parts[4]);
                layer->SetName(parts[1]);
                layer->SetSelectable(parts[3] == "selectable");
                Place(layer, map, groups);
            } else if (kind == "layer" && parts.size() == 4 && map) {
                auto layer = OpenLayer(parts[2]);
                layer->SetName(parts[1]);
                layer->SetSelectable(parts[3] == "selectable");
                Place(layer, map, groups);
            } else if (kind == "group" && parts.size() == 2 && map) {
                auto group = std::make_shared<host::map::GroupLayer>();
                group->SetName(parts[1]);
                Place(group, map, groups);
                groups.push_back(group);
            } else if (kind == "end" && parts.size() == 1 && !groups.empty()) {
                groups.pop_back();
            } else {
                throw Fault("unexpected line: " + line);
            }
        }
        if (first) {
            throw Fault("not a map document");
        }
        if (!groups.empty()) {
            throw Fault("a group without its end");
        }
        if (focus) {
            document->SetFocusMap(focus);
        }
        return document;
    }

private:
    Error Fault(const std::string& what) const {
        return Error(error_number::kInvalidArgument, kSource,
                     m_path + ", line " + std::to_string(m_line) + ": " + what);
    }

    std::shared_ptr<host::IFeatureLayer> OpenLayer(const std::string& data) {
        fs::path shp(data);
        if (shp.is_relative()) {
            shp = m_folder / shp;
        }
        std::string base = shp.filename().string();
        if (base.size() > 4 && (base.ends_with(".shp") || base.ends_with(".SHP"))) {
            base.resize(base.size() - 4);
        }
        try {
            const auto workspace = m_app.Factory().NewShapefileWorkspaceFactory()->OpenFromFile(
                shp.parent_path().lexically_normal().string(), 0);
            auto layer = m_app.Factory().NewFeatureLayer();
            layer->SetFeatureClass(workspace->OpenFeatureClass(base));
            return layer;
        } catch (const Error& e) {
            throw Error(e.Number(), kSource,
                        m_path + ", line " + std::to_string(m_line) + ": " + e.Description());
        }
    }

    // A table of a file of several layers (a GeoPackage).
    std::shared_ptr<host::IFeatureLayer> OpenTable(const std::string& data,
                                                   const std::string& table) {
        fs::path file(data);
        if (file.is_relative()) {
            file = m_folder / file;
        }
        try {
            auto layer = m_app.Factory().NewFeatureLayer();
            layer->SetFeatureClass(
                source::OpenSourceFeatureClass(file.lexically_normal().string(), table));
            return layer;
        } catch (const Error& e) {
            throw Error(e.Number(), kSource,
                        m_path + ", line " + std::to_string(m_line) + ": " + e.Description());
        }
    }

    static void Place(const std::shared_ptr<host::ILayer>& layer,
                      const std::shared_ptr<host::map::Map>& map,
                      const std::vector<std::shared_ptr<host::map::GroupLayer>>& groups) {
        if (groups.empty()) {
            map->AddLayer(layer);
        } else {
            groups.back()->Add(layer);
        }
    }

    host::IApplication& m_app;
    std::string m_path;
    fs::path m_folder;
    int m_line = 0;
    int m_maps = 0;
};

} // namespace

void SaveMapDocument(const host::map::MxDocument& document, const std::string& path) {
    const fs::path folder = fs::absolute(path).parent_path().lexically_normal();
    std::ostringstream out;
    out << kMagic << "\t1\n";
    for (const auto& map : document.Maps()) {
        CheckName(map->Name());
        out << "map\t" << map->Name() << (map == document.FocusMap() ? "\tfocus" : "") << '\n';
        for (std::int32_t i = 0; i < map->LayerCount(); ++i) {
            WriteLayers(out, *map->Layer(i), folder);
        }
    }
    // Written beside and renamed, so a failed save leaves the old document whole.
    util::ReplaceFile(path, out.str(), kSource);
}

std::shared_ptr<host::map::MxDocument> LoadMapDocument(host::IApplication& app,
                                                       const std::string& path) {
    return Reader(app, path).Read();
}

} // namespace quorel::host_app
