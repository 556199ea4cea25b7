"""The program's settings file."""

import json


class SettingsFile:
    def __init__(self, config_home):
        self.path = config_home / "glintmark" / "defaults.json"

    def store(self, values):
        self.path.parent.mkdir(parents=True, exist_ok=True)
        self.path.write_text(json.dumps(values))

    def store_extra_folders(self, folders):
        """Folders that are watched in addition to the two default ones."""
        self.store({"extraFolders": [str(folder) for folder in folders]})

    def values(self):
        return json.loads(self.path.read_text())

    def extra_folders(self):
        """None without a file."""
        return self.values()["extraFolders"] if self.path.exists() else None
