"""Builds the yumoclientsdk wheel and source archive with the standard library alone (PEP 517,
and PEP 660 for editable installs), from the [project] table of pyproject.toml.

The module is pure Python, so its wheel is a zip of the package's files and its metadata. Nothing
is needed to build it, not even setuptools and wheel (which a fresh virtual environment lacks):
`pip install --no-build-isolation ./python` works offline.
"""
from __future__ import annotations

import base64
import hashlib
import io
import os
import re
import sys
import tarfile
import time
import zipfile
from pathlib import Path
from typing import Any, Dict, List, Mapping, Optional

if sys.version_info >= (3, 11):
    import tomllib
else:
    import tomli as tomllib

HERE = Path(__file__).resolve().parent
PACKAGE = "yumoclientsdk"


def _project() -> Dict[str, Any]:
    with open(HERE / "pyproject.toml", "rb") as file:
        project: Dict[str, Any] = tomllib.load(file)["project"]
    return project


def _release() -> str:
    """The name and version as file names have them."""
    project = _project()
    return f"{re.sub(r'[-_.]+', '_', project['name']).lower()}-{project['version']}"


def _metadata() -> str:
    project = _project()
    lines = ["Metadata-Version: 2.1", f"Name: {project['name']}", f"Version: {project['version']}",
             f"Summary: {project['description']}"]
    lines += [f"Author-email: {author['name']} <{author['email']}>" for author in project.get("authors", [])]
    if "license" in project:
        lines.append(f"License: {project['license']['text']}")
    if "requires-python" in project:
        lines.append(f"Requires-Python: {project['requires-python']}")
    lines += [f"Classifier: {classifier}" for classifier in project.get("classifiers", [])]
    lines += [f"Requires-Dist: {requirement}" for requirement in project.get("dependencies", [])]
    return "\n".join(lines) + "\n"


def _package_files() -> List[Path]:
    return sorted(path for path in (HERE / PACKAGE).iterdir()
                  if path.is_file() and (path.suffix == ".py" or path.name == "py.typed"))


def _epoch() -> int:
    """The files' time in the archives: SOURCE_DATE_EPOCH when set, for builds that repeat; zip's
    times start in 1980."""
    return max(int(os.environ.get("SOURCE_DATE_EPOCH", "0")), 315532800)


def _write_wheel(wheel_directory: str, files: Mapping[str, bytes]) -> str:
    release = _release()
    info = f"{release}.dist-info"
    contents = dict(files)
    contents[f"{info}/METADATA"] = _metadata().encode()
    contents[f"{info}/WHEEL"] = b"Wheel-Version: 1.0\nGenerator: build_backend\nRoot-Is-Purelib: true\nTag: py3-none-any\n"
    record = []
    for name, data in contents.items():
        digest = base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()
        record.append(f"{name},sha256={digest},{len(data)}")
    record.append(f"{info}/RECORD,,")
    contents[f"{info}/RECORD"] = ("\n".join(record) + "\n").encode()
    name = f"{release}-py3-none-any.whl"
    with zipfile.ZipFile(Path(wheel_directory) / name, "w", zipfile.ZIP_DEFLATED) as wheel:
        for member, data in contents.items():
            entry = zipfile.ZipInfo(member, time.gmtime(_epoch())[:6])
            entry.external_attr = 0o644 << 16
            wheel.writestr(entry, data, zipfile.ZIP_DEFLATED)
    return name


def get_requires_for_build_wheel(config_settings: Optional[Dict[str, Any]] = None) -> List[str]:
    return []


def get_requires_for_build_sdist(config_settings: Optional[Dict[str, Any]] = None) -> List[str]:
    return []


def get_requires_for_build_editable(config_settings: Optional[Dict[str, Any]] = None) -> List[str]:
    return []


def prepare_metadata_for_build_wheel(metadata_directory: str,
                                     config_settings: Optional[Dict[str, Any]] = None) -> str:
    info = f"{_release()}.dist-info"
    (Path(metadata_directory) / info).mkdir(parents=True, exist_ok=True)
    (Path(metadata_directory) / info / "METADATA").write_text(_metadata())
    return info


def build_wheel(wheel_directory: str, config_settings: Optional[Dict[str, Any]] = None,
                metadata_directory: Optional[str] = None) -> str:
    return _write_wheel(wheel_directory, {f"{PACKAGE}/{path.name}": path.read_bytes() for path in _package_files()})


def build_editable(wheel_directory: str, config_settings: Optional[Dict[str, Any]] = None,
                   metadata_directory: Optional[str] = None) -> str:
    """A wheel whose .pth file puts this directory on the path: the sources are used in place."""
    return _write_wheel(wheel_directory, {f"{PACKAGE}.pth": f"{HERE}\n".encode()})


def build_sdist(sdist_directory: str, config_settings: Optional[Dict[str, Any]] = None) -> str:
    release = _release()
    members = {"pyproject.toml": HERE / "pyproject.toml", "build_backend.py": HERE / "build_backend.py"}
    members.update({f"{PACKAGE}/{path.name}": path for path in _package_files()})
    name = f"{release}.tar.gz"
    with tarfile.open(Path(sdist_directory) / name, "w:gz", format=tarfile.PAX_FORMAT) as archive:
        files = {member: path.read_bytes() for member, path in members.items()}
        files["PKG-INFO"] = _metadata().encode()
        for member, data in files.items():
            entry = tarfile.TarInfo(f"{release}/{member}")
            entry.size, entry.mode, entry.mtime = len(data), 0o644, _epoch()
            archive.addfile(entry, io.BytesIO(data))
    return name
