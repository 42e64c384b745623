#pragma once

// clang-format off
// Map documents as small text files. One line per item, fields separated by tabs:
//
//   quorel-map	1
//   map	Layers	focus             a map; "focus" marks the focus map
//   layer	parcels	parcels.shp	selectable   a shapefile: name, file, flag
//   layer	zones	data.gpkg	fixed	zones   a GeoPackage's table: name, file, flag, table
//   group	Zones               a group layer; its layers follow until "end"
//   end
//
// Files are relative to the document. Names may hold any character but tab and line end. Lines
// starting with '#' are comments.
// clang-format on

#include "host/api/Host.h"
#include "host/map/Map.h"

#include <memory>
#include <string>

namespace quorel::host_app {

// Writes the document's maps, their layers in map order, groups, selectable flags and which
// map has the focus. Files are written relative to the document's folder, a GeoPackage with
// its table. Throws quorel::Error when the file cannot be written or a layer's data is neither
// a shapefile nor a GeoPackage.
void SaveMapDocument(const host::map::MxDocument& document, const std::string& path);

// Reads a document written by SaveMapDocument, opening every shapefile through the
// application's workspace factory and every GeoPackage table as the source library opens it.
// Throws quorel::Error naming the file and line of a fault.
std::shared_ptr<host::map::MxDocument> LoadMapDocument(host::IApplication& app,
                                                       const std::string& path);

} // namespace quorel::host_app
