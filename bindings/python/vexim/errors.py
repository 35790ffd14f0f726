"""What can go wrong. Every error is a `vexim.Error`; its class says what a program can do about it.
"""

from __future__ import annotations

from collections.abc import Mapping
from typing import Any

# Domains of the library.
CLIENT_DOMAIN = "VXIMErrorDomain"
SERVICE_DOMAIN = "VXErrorDomain"
URL_DOMAIN = "NSURLErrorDomain"
CONNECTION_DOMAIN = "VXIMConnectionErrorDomain"
INTERFACE_DOMAIN = "VXIMInterfaceErrorDomain"
STORE_DOMAIN = "VXIMStoreErrorDomain"

_UNDERLYING = "NSUnderlyingError"
# Timed out, host not found, cannot connect, connection lost, name lookup failed, offline.
_PASSING_URL_CODES = frozenset({-1001, -1003, -1004, -1005, -1006, -1009})
# Host not found, unreachable, timed out, lost.
_PASSING_CONNECTION_CODES = frozenset({2, 3, 4, 11})

_BAD_URL = -1000  # an id that makes no URL


class Error(Exception):
    """An operation failed.

    `domain` and `code` name the error as the C++ library does; `description` is for people;
    `user_info` holds what else is known, such as the service's own answer. What caused it, if
    known, is its `__cause__`.
    """

    def __init__(self, domain: str, code: int, description: str, user_info: Any = None) -> None:
        super().__init__(description)
        self.domain = domain
        self.code = code
        self.description = description
        self.user_info = user_info

    def __reduce__(self) -> tuple[type[Error], tuple[str, int, str, Any]]:
        return type(self), (self.domain, self.code, self.description, self.user_info)

    def __str__(self) -> str:
        return f"{self.description} ({self.domain} {self.code})"

    @property
    def temporary(self) -> bool:
        """Whether a retry may help: a timeout, a lost connection, a busy service."""
        passing = {URL_DOMAIN: _PASSING_URL_CODES, CONNECTION_DOMAIN: _PASSING_CONNECTION_CODES}
        if self.code in passing.get(self.domain, ()):
            return True
        if isinstance(self.user_info, Mapping) and self.user_info.get("temporary") is True:
            return True
        return isinstance(self.__cause__, Error) and self.__cause__.temporary


class NetworkError(Error):
    """The service could not be reached, or the connection broke."""


class NotConnectedError(NetworkError):
    """A message was sent while the client was not connected."""

    @property
    def temporary(self) -> bool:
        return True


class LoginError(Error):
    """The service refused the login. `code` and `user_info` are the service's own."""


class ServiceError(Error):
    """The service refused a request. `code` is the service's own."""


class ResponseError(Error):
    """The service's answer cannot be used, or the operation failed without a reason."""


class UsageError(Error, ValueError):
    """A mistake in the program: a missing or unusable argument."""


class BusyError(Error):
    """Too many requests are waiting already."""

    @property
    def temporary(self) -> bool:
        return True


class AbandonedError(Error):
    """The operation will never be answered, for instance because another login began."""


class ClosedError(Error):
    """The client was closed before or during the call."""

    def __init__(self, domain: str = INTERFACE_DOMAIN, code: int = 6,
                 description: str = "The client is closed.",
                 user_info: Any = None) -> None:
        super().__init__(domain, code, description, user_info)


class StoreError(Error):
    """A store could not be opened, read or written, or the C library has no store. Codes of the
    domain "VXIMStoreErrorDomain" are listed in docs/c-interface.md: 6 is a full disk, 8 a file that
    another program has open, 10 a message that is not there."""

    @staticmethod
    def not_open() -> StoreError:
        """That the store is not open."""
        return StoreError(INTERFACE_DOMAIN, 12, "The store is not open: use `async with`.")


class LibraryNotFoundError(ImportError):
    """The C library `libvexim-c` is not installed, or cannot be loaded."""


def usage(description: str) -> UsageError:
    return UsageError(INTERFACE_DOMAIN, 4, description)


_INTERFACE_ERRORS: dict[int, type[Error]] = {6: ClosedError, 7: BusyError, 9: ResponseError,
                                             10: AbandonedError,
                                            11: StoreError, 12: StoreError}


def _class_for(domain: str, code: int, operation: str, cause: Error | None) -> type[Error]:
    if domain == INTERFACE_DOMAIN:
        return _INTERFACE_ERRORS.get(code, UsageError)
    if domain == CLIENT_DOMAIN:
        if operation.startswith("login"):
            return LoginError
        return {1: NotConnectedError, 2: ResponseError, 5004: UsageError}.get(code, ServiceError)
    if domain == SERVICE_DOMAIN:
        if code != 100:
            return ServiceError
        if cause is None or cause.domain != URL_DOMAIN:
            return ResponseError
        return UsageError if cause.code == _BAD_URL else NetworkError
    if domain == STORE_DOMAIN:
        return StoreError
    return NetworkError if domain in (URL_DOMAIN, CONNECTION_DOMAIN) else Error


def _number(value: Any) -> int:
    return value if isinstance(value, int) else 0


def error_from(record: Any, operation: str = "") -> Error:
    """The exception for an error of the C library."""
    if not isinstance(record, Mapping):
        record = {}
    domain, code = str(record.get("domain", "")), _number(record.get("code"))
    info = record.get("userInfo")
    beneath = info.get(_UNDERLYING) if isinstance(info, Mapping) else None
    cause = error_from(beneath) if isinstance(beneath, Mapping) and "domain" in beneath else None
    kind = _class_for(domain, code, operation, cause)
    error = kind(domain, code, str(record.get("description", "")), info)
    error.__cause__ = cause
    return error
