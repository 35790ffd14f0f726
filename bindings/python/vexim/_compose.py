"""Messages to send, in the form that the C library expects."""

from __future__ import annotations

import asyncio
import base64
import os
from collections.abc import Mapping
from typing import Any, Union

from .errors import usage
from .models import Media

File = Union[str, "os.PathLike[str]", bytes]
_DEFAULT_NAMES = {Media.IMAGE: "image.png", Media.AUDIO: "audio.mp3", Media.VIDEO: "video.mp4"}


def one_of(*targets: tuple[str, str, str | bool | None]) -> tuple[str, str, str | bool]:
    """The operation, parameter and id of the one target that is given."""
    chosen = [(operation, parameter, id) for operation, parameter, id in targets if id is not None]
    if len(chosen) != 1:
        raise usage("say to whom, and to one only")
    return chosen[0]


async def composed(
    text: str | None,
    image: File | None,
    audio: File | None,
    video: File | None,
    name: str | None,
    payload: Mapping[str, Any] | None,
) -> dict[str, Any]:
    """A message in the form that the C library expects."""
    given = ((Media.IMAGE, image), (Media.AUDIO, audio), (Media.VIDEO, video))
    files = [(media, file) for media, file in given if file is not None]
    if len(files) + (text is not None) != 1:
        raise usage("give a text, or one of image, audio and video")
    message: dict[str, Any] = {}
    if payload is not None:
        message["payload"] = dict(payload)
    if text is not None:
        message["text"] = text
        return message
    media, file = files[0]
    message["mediaType"] = int(media)
    if isinstance(file, bytes):
        # Encoding many megabytes would block the loop noticeably.
        encoded = await asyncio.to_thread(base64.b64encode, file)
        message["attachmentData"] = encoded.decode()
        message["attachmentName"] = name or _DEFAULT_NAMES[media]
    else:
        message["attachmentPath"] = os.path.abspath(os.fspath(file))
    return message
