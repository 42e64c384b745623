"""Registers the provider with Processing while the plugin is loaded."""

from qgis.core import QgsApplication

from .provider import QuorelProvider


class QuorelPlugin:
    def __init__(self, iface=None):
        self.iface = iface
        self.provider = None

    def initProcessing(self):  # noqa: N802 (QGIS's name)
        self.provider = QuorelProvider()
        QgsApplication.processingRegistry().addProvider(self.provider)

    def initGui(self):  # noqa: N802
        self.initProcessing()

    def unload(self):
        if self.provider is not None:
            QgsApplication.processingRegistry().removeProvider(self.provider)
            self.provider = None
