"""What the Quorel algorithms share: each changes a polygon layer's own source in place, through
the Python module, and has the layers open on that source read its new field."""

import html
import os

import quorel
from qgis.core import (
    QgsDataProvider,
    QgsDataSourceUri,
    QgsProcessing,
    QgsProcessingAlgorithm,
    QgsProcessingException,
    QgsProcessingOutputString,
    QgsProcessingOutputVectorLayer,
    QgsProcessingParameterString,
    QgsProcessingParameterVectorLayer,
    QgsProject,
    QgsProviderRegistry,
)

from .texts import language, text

# Text ids (lang/texts.tsv).
LAYER, OUTPUT_NAME, NOT_A_FILE, UPDATED_LAYER, OUTPUT_FIELD = 361, 122, 372, 374, 375
EDITING, FIELD_ADDED = 133, 240


class _Stopped(Exception):
    """Raised from the progress callback when the user cancels."""


def layer_source(layer):
    """The layer's source as Quorel names it and its layer there (None for a shapefile's one
    layer), when Quorel can run on it: a shapefile, a GeoPackage's table or a PostGIS table;
    None otherwise."""
    if layer.providerType() == "postgres":
        uri = QgsDataSourceUri(layer.source())
        table = uri.table() if uri.schema() in ("", "public") else f"{uri.schema()}.{uri.table()}"
        return f'PG:"{uri.connectionInfo(True)}"', table
    if layer.providerType() != "ogr":
        return None
    parts = QgsProviderRegistry.instance().decodeUri("ogr", layer.source())
    path = parts.get("path", "")
    if path.lower().endswith(".shp"):
        return path, None
    if path.lower().endswith(".gpkg"):
        return path, parts.get("layerName") or None
    return None


def same_source(one, other):
    """Whether two sources of layer_source are the same data."""
    if one is None or other is None or one[1] != other[1]:
        return False
    if one[0].startswith("PG:"):
        return one[0] == other[0]
    return os.path.exists(one[0]) and os.path.exists(other[0]) and \
        os.path.samefile(one[0], other[0])


def show_new_fields(context, source):
    """Has the layers open on source (of layer_source) read its new table, without a restart."""
    if source is None:
        return
    for store in (QgsProject.instance(), context.temporaryLayerStore()):
        for layer in store.mapLayers().values():
            if same_source(layer_source(layer), source):
                # A new provider reads the table's fields again (the PostgreSQL provider's
                # reload keeps them); the layer keeps its style.
                layer.setDataSource(layer.source(), layer.name(), layer.providerType(),
                                    QgsDataProvider.ProviderOptions())
                layer.triggerRepaint()


class InPlaceAlgorithm(QgsProcessingAlgorithm):
    """An algorithm that adds one field to its INPUT layer's source. A subclass names itself
    (NAME, and the text ids ALGORITHM, HELP and STOPPED), adds its own parameters between the
    layer and the output name, and runs Quorel in change_source()."""

    NAME = ALGORITHM = HELP = STOPPED = None

    def __init__(self):
        super().__init__()
        self._source = None

    def createInstance(self):  # noqa: N802 (QGIS's names)
        return type(self)()

    def name(self):
        return self.NAME

    def displayName(self):  # noqa: N802
        return text(self.ALGORITHM)

    def shortHelpString(self):  # noqa: N802
        return html.escape(text(self.HELP))  # shown as HTML: "a <= b" is no tag

    def initAlgorithm(self, config=None):  # noqa: N802
        self.addParameter(QgsProcessingParameterVectorLayer(
            "INPUT", text(LAYER), [QgsProcessing.TypeVectorPolygon]))
        self.add_parameters()
        self.addParameter(QgsProcessingParameterString(
            "OUTPUT_FIELD", text(OUTPUT_NAME), optional=True))
        self.addOutput(QgsProcessingOutputVectorLayer("OUTPUT", text(UPDATED_LAYER)))
        self.addOutput(QgsProcessingOutputString("OUTPUT_FIELD", text(OUTPUT_FIELD)))

    def add_parameters(self):
        raise NotImplementedError

    def change_source(self, parameters, context, path, layer_name, out, progress):
        """Runs Quorel on the source; returns the name of the field added."""
        raise NotImplementedError

    def processAlgorithm(self, parameters, context, feedback):  # noqa: N802
        layer = self.parameterAsVectorLayer(parameters, "INPUT", context)
        source = layer_source(layer)
        if source is None:
            raise QgsProcessingException(text(NOT_A_FILE, layer.source()))
        path, layer_name = source
        if layer.isEditable():
            raise QgsProcessingException(text(EDITING))
        out = self.parameterAsString(parameters, "OUTPUT_FIELD", context) or None

        def progress(fraction):
            feedback.setProgress(100 * fraction)
            if feedback.isCanceled():
                raise _Stopped()

        quorel.set_language(language())
        try:
            added = self.change_source(parameters, context, path, layer_name, out, progress)
        except _Stopped:
            raise QgsProcessingException(text(self.STOPPED)) from None
        except (quorel.Error, ValueError) as error:
            raise QgsProcessingException(str(error)) from None
        finally:
            self._source = source
        # A database's connection may hold a password: the layer's name says enough.
        feedback.pushInfo(text(FIELD_ADDED, added, layer.name() if path.startswith("PG:") else path))
        return {"OUTPUT": layer.id() if layer.id() else path, "OUTPUT_FIELD": added}

    def postProcessAlgorithm(self, context, feedback):  # noqa: N802
        show_new_fields(context, self._source)
        return {}
