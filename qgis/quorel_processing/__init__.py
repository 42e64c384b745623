"""QGIS plugin: the Quorel Processing provider."""


def classFactory(iface):  # noqa: N802 (QGIS's name)
    from .plugin import QuorelPlugin

    return QuorelPlugin(iface)
