"""A case: commands that run one after the other in a folder of their own."""
from dataclasses import dataclass, field


@dataclass
class Case:
    """Words that begin with "IN/" are paths below the inputs; others stay as they are."""
    name: str
    steps: list  # each a list of words; the first is Tovrek, a companion or a program of the host
    files: dict = field(default_factory=dict)  # inputs to be copied into the folder, by new name
    environment: dict = field(default_factory=dict)
    keychain: str = "keychain"  # an input that becomes the default keychain; "" for none
    settings: str = "shipped"  # or "all", or the text of a settings file
    stdin: bytes = b""
    own_toolkit: bool = False  # runs a copy of the installed folder
    without: tuple = ()  # what is taken away of these copies, "tovrek/..." and "host/..."
    content: dict = field(default_factory=dict)  # files of its own toolkit to be written
    merge: bool = False  # both outputs as one
