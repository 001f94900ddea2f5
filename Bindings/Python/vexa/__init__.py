"""Files of simulations: tables, series of coefficients and of tensors, texts and version records.

File writes them, read() and open() read them, of one file or of a run's segments as if joined.
"""

from ._errors import Error
from ._joined import Joined, open_joined as open, plan
from ._reading import CoefSteps, read
from ._writing import (Coefs, File, Table, Tensors, Text, cache_limit, flush_all, install_handlers,
                       library_version, set_cache_limit, set_lock_patience, waiting)

__all__ = ["CoefSteps", "Coefs", "Error", "File", "Joined", "Table", "Tensors", "Text", "cache_limit",
           "flush_all", "install_handlers", "library_version", "open", "plan", "read",
           "set_cache_limit", "set_lock_patience", "waiting"]
