"""The two kinds of settings that Tarnwell backs up: the commands for each, and what it says."""


class Kind:
    """One kind of settings: its commands and its alerts, each a (title, text).

    Paths are as the window shows them: absolute on the volume.
    """

    def __init__(self, name, question, were_restored, backup_error_end):
        word = name.lower()
        self.back_up, self.restore = f"Back Up {name}", f"Restore {name}"
        self.question = question
        self.backed_up_already = (
            f"{name} already backed up",
            f"A backup of this application's {word} already exists.\n\n"
            "Do you want to override the existing backup?")
        self.running = (
            "Application is Running", "The application is currently running.\n\nIt is recommended "
            f"you terminate it first before restoring its {word}. Are you sure you want to "
            "continue?")
        self.restored = (f"{name} Restored!",
                         f"The {word} {were_restored} successfully restored from backup.")
        self._word, self._backup_error_end = word, backup_error_end

    def backup_error(self, path):
        return ("Backup Error", f"There was an error backing up the {self._word}.\n\n"
                f"Please make sure you have appropriate permissions!\n({path}.bak"
                f"{self._backup_error_end}")

    def restore_error(self, path):
        return ("Restore Error", f"There was an error restoring the {self._word}.\n\n"
                f"Please make sure you have appropriate permissions!\n({path}).")


KINDS = PREFERENCES, DATA = (
    Kind("Preferences",
         ("Restoring of Preferences",
          "Are you sure you want to restore this app's preferences from backup? The current "
          "preferences will be overwritten.\n\n(The preferences backup will not be deleted and can "
          "be restored again in future.)"), "were", ")."),
    Kind("Data",
         ("Data Restore",
          "Are you sure you want to restore this app's data from backup?\n\n(The data backup will "
          "not be deleted and can be restored again, but the current data will be overwritten.)"),
         "was", ")"),
)
