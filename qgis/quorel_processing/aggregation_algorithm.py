"""The algorithm quorel:aggregation, "Agrégation floue" / "Fuzzy aggregation": the aggregation of
the quorel command line on a polygon layer's own source, through the Python module, in place."""

import quorel
from qgis.core import (
    QgsProcessingException,
    QgsProcessingParameterEnum,
    QgsProcessingParameterField,
    QgsProcessingParameterNumber,
    QgsProcessingParameterString,
)

from .in_place import InPlaceAlgorithm
from .texts import text

# Text ids (lang/texts.tsv).
WEIGHTS = 377
INPUTS, OPERATOR, GAMMA, NOT_A_NUMBER = 342, 344, 345, 354

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



class AggregationAlgorithm(InPlaceAlgorithm):
    NAME, ALGORITHM, HELP, STOPPED = "aggregation", 376, 378, 379

    def add_parameters(self):
        self.addParameter(QgsProcessingParameterField(
            "FIELDS", text(INPUTS), parentLayerParameterName="INPUT",
            type=QgsProcessingParameterField.Numeric, allowMultiple=True))
        self.addParameter(QgsProcessingParameterEnum(
            "OPERATOR", text(OPERATOR), options=[f"{n}   {d}" for n, d in OPERATORS],
            defaultValue=0))
        self.addParameter(QgsProcessingParameterNumber(
            "GAMMA", text(GAMMA), QgsProcessingParameterNumber.Double, defaultValue=0.5))
        self.addParameter(QgsProcessingParameterString("WEIGHTS", text(WEIGHTS), optional=True))

    def change_source(self, parameters, context, path, layer_name, out, progress):
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
        return quorel.aggregate(path, fields, op, gamma=gamma, weights=weights,
                                layer=layer_name, out=out, progress=progress)
