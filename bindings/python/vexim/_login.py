"""The kinds of login, by what is given for them."""

from __future__ import annotations

from typing import Any

from ._link import Record
from .errors import usage

_LOGINS = {
    frozenset({"user_id"}): "loginWithUserId",
    frozenset({"username", "password"}): "loginWithUsername",
    frozenset({"phone_number", "sms_code"}): "loginWithPhoneNumber",
    frozenset({"oauth"}): "loginWithThirdPartyOAuth",
    frozenset({"auth_data"}): "loginWithAuthData",
}
_CPP_NAMES = {
    "user_id": "userId", "username": "username", "password": "password",
    "phone_number": "phoneNumber", "sms_code": "smsCode", "oauth": "oauth", "auth_data": "authData",
}


def login_call(**credentials: Any) -> tuple[str, Record]:
    """The operation and its arguments. What is None was not given; raises `UsageError` if the rest
    is not one kind of login."""
    given = {name: value for name, value in credentials.items() if value is not None}
    operation = _LOGINS.get(frozenset(given))
    if operation is None:
        raise usage("give user_id, or username and password, or phone_number and sms_code, "
                    "or oauth, or auth_data")
    return operation, {_CPP_NAMES[name]: value for name, value in given.items()}
