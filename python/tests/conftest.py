import os
import sys
import tempfile

# The package from this source tree unless one is installed on purpose.
sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
os.environ.setdefault("PIXMILL_ROOT", tempfile.mkdtemp(prefix="pixmill-py-"))

import pytest  # noqa: E402

import pixmill  # noqa: E402


@pytest.fixture(autouse=True)
def fresh_root(tmp_path):
    """Each test's files go under its own root."""
    pixmill.PixmillSetRoot(root=str(tmp_path))
    yield tmp_path
    pixmill.PixmillSetRoot(root=os.environ["PIXMILL_ROOT"])
