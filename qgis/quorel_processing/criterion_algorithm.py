"""The algorithm quorel:criterion, "Critère flou" / "Fuzzy criterion": the criterion run of the
quorel command line on a polygon layer's own source, through the Python module, in place."""

import html
import os

import quorel
from qgis.core import (
    QgsDataProvider,
    QgsProcessing,
    QgsProcessingAlgorithm,
    QgsProcessingException,
    QgsProcessingOutputString,
    QgsProcessingOutputVectorLayer,
    QgsProcessingParameterEnum,
    QgsProcessingParameterField,
    QgsProcessingParameterNumber,
    QgsProcessingParameterString,
    QgsProcessingParameterVectorLayer,
    QgsDataSourceUri,
    QgsProject,
    QgsProviderRegistry,
)

from .texts import language, text

# Text ids (lang/texts.tsv).
ALGORITHM = 360
LAYER, FIELD, SHAPE, OUTPUT_NAME, HELP = 361, 362, 363, 122, 371
SHAPES = [364, 365, 366, 367, 368]  # kinds 1 to 5
NOT_A_FILE, STOPPED, UPDATED_LAYER, OUTPUT_FIELD = 372, 373, 374, 375
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


class CriterionAlgorithm(QgsProcessingAlgorithm):
    def __init__(self):
        super().__init__()
        self._source = None

    def createInstance(self):  # noqa: N802 (QGIS's names)
        return CriterionAlgorithm()

    def name(self):
        return "criterion"

    def displayName(self):  # noqa: N802
        return text(ALGORITHM)

    def shortHelpString(self):  # noqa: N802
        return html.escape(text(HELP))  # shown as HTML: "a <= b" is no tag

    def initAlgorithm(self, config=None):  # noqa: N802
        self.addParameter(QgsProcessingParameterVectorLayer(
            "INPUT", text(LAYER), [QgsProcessing.TypeVectorPolygon]))
        self.addParameter(QgsProcessingParameterField(
            "FIELD", text(FIELD), parentLayerParameterName="INPUT",
            type=QgsProcessingParameterField.Numeric))
        self.addParameter(QgsProcessingParameterEnum(
            "SHAPE", text(SHAPE), options=[text(t) for t in SHAPES], defaultValue=4))
        for name in "ABCD":
            self.addParameter(QgsProcessingParameterNumber(
                name, name.lower(), QgsProcessingParameterNumber.Double, optional=True))
        self.addParameter(QgsProcessingParameterString(
            "OUTPUT_FIELD", text(OUTPUT_NAME), optional=True))
        self.addOutput(QgsProcessingOutputVectorLayer("OUTPUT", text(UPDATED_LAYER)))
        self.addOutput(QgsProcessingOutputString("OUTPUT_FIELD", text(OUTPUT_FIELD)))

    def processAlgorithm(self, parameters, context, feedback):  # noqa: N802
        layer = self.parameterAsVectorLayer(parameters, "INPUT", context)
        source = layer_source(layer)
        if source is None:
            raise QgsProcessingException(text(NOT_A_FILE, layer.source()))
        path, layer_name = source
        if layer.isEditable():
            raise QgsProcessingException(text(EDITING))
        field = self.parameterAsFields(parameters, "FIELD", context)[0]
        kind = self.parameterAsEnum(parameters, "SHAPE", context) + 1
        # An unset parameter is an empty box, as in Quorel's dialog.
        points = [self.parameterAsDouble(parameters, n, context)
                  if parameters.get(n) not in (None, "") else None for n in "ABCD"]
        out = self.parameterAsString(parameters, "OUTPUT_FIELD", context) or None

        def progress(fraction):
            feedback.setProgress(100 * fraction)
            if feedback.isCanceled():
                raise _Stopped()

        quorel.set_language(language())
        try:
            added = quorel.run(path, field, kind, *points, layer=layer_name, out=out,
                               progress=progress)
        except _Stopped:
            raise QgsProcessingException(text(STOPPED)) from None
        except quorel.Error as error:
            raise QgsProcessingException(str(error)) from None
        finally:
            self._source = source
        # A database's connection may hold a password: the layer's name says enough.
        feedback.pushInfo(text(FIELD_ADDED, added, layer.name() if path.startswith("PG:") else path))
        return {"OUTPUT": layer.id() if layer.id() else path, "OUTPUT_FIELD": added}

    def postProcessAlgorithm(self, context, feedback):  # noqa: N802
        show_new_fields(context, self._source)
        return {}
