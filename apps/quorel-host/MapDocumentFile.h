#pragma once

// Map documents as small text files. One line per item, fields separated by tabs:
//
//   quorel-map	1
//   map	Layers	focus                 a map; "focus" marks the focus map
//   layer	parcels	parcels.shp	selectable   name, shapefile (relative to the document),
//   flag group	Zones                       a group layer; its layers follow until "end" end
//
// Names may hold any character but tab and line end. Lines starting with '#' are comments.

#include "host/shapefile/Application.h"

#include <memory>
#include <string>

namespace quorel::host_app {

// Writes the document's maps, their layers in map order, groups, selectable flags and which
// map has the focus. Shapefile paths are written relative to the document's folder. Throws
// quorel::Error when the file cannot be written or a layer's data is not a shapefile.
void SaveMapDocument(const host::map::MxDocument& document, const std::string& path);

// Reads a document written by SaveMapDocument, opening every shapefile through the
// application's workspace factory. Throws quorel::Error naming the file and line of a fault.
std::shared_ptr<host::map::MxDocument> LoadMapDocument(host::shapefile::Application& app,
                                                       const std::string& path);

} // namespace quorel::host_app
