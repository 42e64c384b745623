"""The algorithm quorel:aggregation, "Agrégation floue" / "Fuzzy aggregation": the aggregation of
the quorel command line on a polygon layer's own source, through the Python module, in place."""

import html

import quorel
from qgis.core import (
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
)

from .criterion_algorithm import (EDITING, FIELD_ADDED, LAYER, NOT_A_FILE, OUTPUT_FIELD,
                                  UPDATED_LAYER, layer_source, show_new_fields)
from .texts import language, text

# Text ids (lang/texts.tsv).
ALGORITHM, WEIGHTS, HELP, STOPPED = 376, 377, 378, 379
INPUTS, OPERATOR, GAMMA, OUTPUT_NAME, NOT_A_NUMBER = 342, 344, 345, 347, 354

# The operators as Quorel's aggregation window lists them: the record's name and its definition.
OPERATORS = [
    ("and", "min(μi)"),
    ("or", "max(μi)"),
    ("product", "Π μi"),
    ("sum", "1 − Π (1 − μi)"),
    ("gamma", "sum^γ × product^(1−γ)"),
    ("mean", "Σ wi μi / Σ wi"),
    ("owa", "Σ wk μ(k), μ(1) ≥ μ(2) ≥ …"),
]


class _Stopped(Exception):
    """Raised from the progress callback when the user cancels."""


class AggregationAlgorithm(QgsProcessingAlgorithm):
    def __init__(self):
        super().__init__()
        self._source = None

    def createInstance(self):  # noqa: N802 (QGIS's names)
        return AggregationAlgorithm()

    def name(self):
        return "aggregation"

    def displayName(self):  # noqa: N802
        return text(ALGORITHM)

    def shortHelpString(self):  # noqa: N802
        return html.escape(text(HELP))

    def initAlgorithm(self, config=None):  # noqa: N802
        self.addParameter(QgsProcessingParameterVectorLayer(
            "INPUT", text(LAYER), [QgsProcessing.TypeVectorPolygon]))
        self.addParameter(QgsProcessingParameterField(
            "FIELDS", text(INPUTS), parentLayerParameterName="INPUT",
            type=QgsProcessingParameterField.Numeric, allowMultiple=True))
        self.addParameter(QgsProcessingParameterEnum(
            "OPERATOR", text(OPERATOR), options=[f"{n}   {d}" for n, d in OPERATORS],
            defaultValue=0))
        self.addParameter(QgsProcessingParameterNumber(
            "GAMMA", text(GAMMA), QgsProcessingParameterNumber.Double, defaultValue=0.5))
        self.addParameter(QgsProcessingParameterString("WEIGHTS", text(WEIGHTS), optional=True))
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
        fields = self.parameterAsFields(parameters, "FIELDS", context)
        op = OPERATORS[self.parameterAsEnum(parameters, "OPERATOR", context)][0]
        # The gamma box serves gamma only; weights typed for another operator are refused by
        # Quorel, with its message.
        gamma = self.parameterAsDouble(parameters, "GAMMA", context) if op == "gamma" else None
        typed = self.parameterAsString(parameters, "WEIGHTS", context).strip()
        weights = None
        if typed:
            try:
                weights = [float(w.strip().replace(",", ".")) for w in typed.split(";")]
            except ValueError:
                raise QgsProcessingException(text(NOT_A_NUMBER, text(WEIGHTS), typed)) from None
        out = self.parameterAsString(parameters, "OUTPUT_FIELD", context) or None

        def progress(fraction):
            feedback.setProgress(100 * fraction)
            if feedback.isCanceled():
                raise _Stopped()

        quorel.set_language(language())
        try:
            added = quorel.aggregate(path, fields, op, gamma=gamma, weights=weights,
                                     layer=layer_name, out=out, progress=progress)
        except _Stopped:
            raise QgsProcessingException(text(STOPPED)) from None
        except (quorel.Error, ValueError) as error:
            raise QgsProcessingException(str(error)) from None
        finally:
            self._source = source
        where = layer.name() if path.startswith("PG:") else path  # no password shown
        feedback.pushInfo(text(FIELD_ADDED, added, where))
        return {"OUTPUT": layer.id() if layer.id() else path, "OUTPUT_FIELD": added}

    def postProcessAlgorithm(self, context, feedback):  # noqa: N802
        show_new_fields(context, self._source)
        return {}
