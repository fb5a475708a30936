"""The one exception of the virtual instrument's own."""


class BenchError(Exception):
    """Something the user can act upon: the text names the cause, `remedy` what to do about it."""

    def __init__(self, cause, remedy=None):
        super().__init__(cause)
        self.remedy = remedy

    def __str__(self):
        cause = super().__str__()
        return f"{cause}\n  remedy: {self.remedy}" if self.remedy else cause
