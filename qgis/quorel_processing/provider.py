"""The "Quorel" Processing provider."""

from qgis.core import QgsProcessingProvider

from .aggregation_algorithm import AggregationAlgorithm
from .criterion_algorithm import CriterionAlgorithm


class QuorelProvider(QgsProcessingProvider):
    def id(self):
        return "quorel"

    def name(self):
        return "Quorel"

    def longName(self):  # noqa: N802
        return "Quorel"

    def loadAlgorithms(self):  # noqa: N802
        self.addAlgorithm(CriterionAlgorithm())
        self.addAlgorithm(AggregationAlgorithm())
