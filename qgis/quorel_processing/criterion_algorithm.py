"""The algorithm quorel:criterion, "Critère flou" / "Fuzzy criterion": the criterion run of the
quorel command line on a polygon layer's own source, through the Python module, in place."""

import quorel
from qgis.core import (
    QgsProcessingParameterEnum,
    QgsProcessingParameterField,
    QgsProcessingParameterNumber,
)

from .in_place import InPlaceAlgorithm
from .texts import text

# Text ids (lang/texts.tsv).
FIELD, SHAPE = 362, 363
SHAPES = [364, 365, 366, 367, 368]  # kinds 1 to 5


class CriterionAlgorithm(InPlaceAlgorithm):
    NAME, ALGORITHM, HELP, STOPPED = "criterion", 360, 371, 373

    def add_parameters(self):
        self.addParameter(QgsProcessingParameterField(
            "FIELD", text(FIELD), parentLayerParameterName="INPUT",
            type=QgsProcessingParameterField.Numeric))
        self.addParameter(QgsProcessingParameterEnum(
            "SHAPE", text(SHAPE), options=[text(t) for t in SHAPES], defaultValue=4))
        for name in "ABCD":
            self.addParameter(QgsProcessingParameterNumber(
                name, name.lower(), QgsProcessingParameterNumber.Double, optional=True))

    def change_source(self, parameters, context, path, layer_name, out, progress):
        field = self.parameterAsFields(parameters, "FIELD", context)[0]
        kind = self.parameterAsEnum(parameters, "SHAPE", context) + 1
        # An unset parameter is an empty box, as in Quorel's dialog.
        points = [self.parameterAsDouble(parameters, n, context)
                  if parameters.get(n) not in (None, "") else None for n in "ABCD"]
        return quorel.run(path, field, kind, *points, layer=layer_name, out=out,
                          progress=progress)
