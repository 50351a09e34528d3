"""The exception of the package."""


class Error(Exception):
    """A failure that the library reports: no capture, a file cut short, a tag that an encoding cannot carry.

    Parameters
    ----------
    message : str
        What happened.
    code : int
        One of the constants below.

    Attributes
    ----------
    code : int
        `INVALID_ARGUMENT`, `FILE_FAILURE`, `NOT_A_CAPTURE` or `NOT_OPEN`.

    Notes
    -----
    A file that is not there is a `FileNotFoundError`, one that may not be read a `PermissionError`. Arguments of a
    wrong kind are a `TypeError`, of a wrong value or shape a `ValueError`; both name the argument.

    Examples
    --------
    >>> import orvo_timing, tempfile
    >>> with tempfile.NamedTemporaryFile() as file:
    ...     _ = file.write(b"no capture at all")
    ...     file.flush()
    ...     try:
    ...         orvo_timing.open(file.name)
    ...     except orvo_timing.Error as error:
    ...         print(error, error.code == orvo_timing.Error.NOT_A_CAPTURE)
    StreamFileReader: not an Orvo timing stream file True
    """

    INVALID_ARGUMENT = -1
    FILE_FAILURE = -2
    NOT_A_CAPTURE = -4
    NOT_OPEN = -6

    def __init__(self, message: str, code: int = 0) -> None:
        super().__init__(message, code)
        self.code = code

    def __str__(self) -> str:
        return str(self.args[0])
