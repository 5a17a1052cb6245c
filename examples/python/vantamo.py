"""Vantamo for Python: the library's C interface through ctypes.

    import vantamo

    vantamo.startup()
    vantamo.fire_page_view(pageId="home", attributes=["spring", "web"])
    vantamo.flush(2)
    vantamo.shutdown()

What is left out or None is absent, which is not the same as "". Values are strings. The shared
library is the one that the environment variable VANTAMO_LIBRARY names, or the loader finds as
libvantamo_default_core.so. vantamo_c.h tells what each function does. An own transport or clock is
not offered here: the library may call them for as long as the process lives, Python does not.
"""

import atexit
import ctypes
import inspect
import itertools
import os
import time
from collections import namedtuple
from ctypes import POINTER, c_bool, c_char_p, c_double, c_int32, c_int64, c_size_t, c_void_p

_library = ctypes.CDLL(os.environ.get("VANTAMO_LIBRARY", "libvantamo_default_core.so"))


# --- Values

class _List(ctypes.Structure):
    _fields_ = [("entries", POINTER(c_char_p)), ("count", c_size_t)]


class _OptionalCount(ctypes.Structure):
    _fields_ = [("present", c_bool), ("count", c_size_t)]


class _ScreenSize(ctypes.Structure):
    _fields_ = [("present", c_bool), ("width", c_double), ("height", c_double)]


class _Callback(ctypes.Structure):
    _fields_ = [("call", c_void_p), ("context", c_void_p), ("release", c_void_p)]


class _Transport(ctypes.Structure):
    _fields_ = [("post", c_void_p), ("interrupt", c_void_p), ("context", c_void_p),
                ("release", c_void_p)]


def _text(value):
    if value is None:
        return None
    if not isinstance(value, str):
        raise TypeError(f"a string is expected, not {value!r}")
    return value.encode("utf-8", "replace")


def _list(values):
    if values is None:
        return _List()
    if isinstance(values, str):
        raise TypeError(f"a list of strings is expected, not {values!r}")
    texts = [_text(value) for value in values]
    return _List((c_char_p * len(texts))(*texts), len(texts))


def _count(value):
    return _OptionalCount() if value is None else _OptionalCount(True, value)


def _structure(name, fields):
    """A C struct that begins with `size`; what it is made with is kept alive by its members."""
    kind = type(name, (ctypes.Structure,), {"_fields_": [("size", c_size_t), *fields]})
    return lambda **members: kind(size=ctypes.sizeof(kind), **members), kind


def _function(name, result, *arguments):
    function = getattr(_library, "vantamo_" + name)
    function.restype, function.argtypes = result, arguments
    return function


_free = _function("free", None, c_void_p)


def _taken(pointer):
    """The string that the library has handed out; it is given back."""
    if not pointer:
        return None
    text = ctypes.string_at(pointer).decode()
    _free(pointer)
    return text


def _asking(name):
    ask = _function(name, c_void_p)
    return lambda: _taken(ask())


def _telling(name):
    tell = _function(name, c_bool, c_char_p)
    return lambda value: tell(_text(value))


# --- Callbacks: held here until the library has no use for them any more.

_held = {}
_inherited = []
_keys = itertools.count(1)
_release = ctypes.CFUNCTYPE(None, c_void_p)(lambda key: _held.pop(key, None) and None)


def _callback(kind, function):
    """Code, context and release for `function`; all null for none."""
    if function is None:
        return _Callback()
    key = next(_keys)
    _held[key] = kind(function)
    return _Callback(ctypes.cast(_held[key], c_void_p), key, ctypes.cast(_release, c_void_p))


def _inherit():
    """A forked child may call what its parent has set, and releases none of it."""
    _inherited.extend(_held.values())
    _held.clear()


os.register_at_fork(after_in_child=_inherit)


# --- The facade

startup = _function("startup", c_bool)
start_new_session = _function("start_new_session", c_bool)
shutdown = _function("shutdown", c_bool)
session_id = _asking("session_id")
visitor_id = _asking("visitor_id")
library_version = _asking("library_version")
get_prw_advertising_id = _asking("get_prw_advertising_id")
set_prw_advertising_id = _telling("set_prw_advertising_id")
activate_client_id = _telling("activate_client_id")
reset_to_default_client_id = _function("reset_to_default_client_id", c_bool)
set_opt_out = _telling("set_opt_out")
get_opt_out = _asking("get_opt_out")


def _event(name, texts, lists):
    """fire_NAME, with a keyword for each member: texts, then lists, as the struct has them."""
    texts, lists = texts.split(), lists.split()
    make, kind = _structure(name, [*((text, c_char_p) for text in texts),
                                   *((member, _List) for member in lists)])
    fire_event = _function("fire_" + name, c_bool, POINTER(kind))
    signature = inspect.Signature(
        inspect.Parameter(member, inspect.Parameter.KEYWORD_ONLY, default=None)
        for member in texts + lists)

    def fire(**members):
        given = signature.bind(**members).arguments
        return fire_event(make(**{member: _list(value) if member in lists else _text(value)
                                  for member, value in given.items()}))

    fire.__name__ = "fire_" + name
    fire.__signature__ = signature
    return fire


fire_page_view = _event("page_view", "pageId category searchTerm searchResult", "attributes vqmmc")
fire_product_view = _event("product_view", "pageId productId productName category", "attributes")
fire_shop_action5 = _event(
    "shop_action5", "productId productName quantity baseUnitPrice category currencyCode",
    "attributes")
fire_shop_action9 = _event(
    "shop_action9", "productId productName quantity baseUnitPrice category orderId orderSubTotal "
    "customerId currencyCode", "attributes")
fire_order = _event(
    "order", "orderId subtotal shippingCharge customerId customerCity customerState customerZip "
    "currencyCode", "attributes")
fire_registration = _event(
    "registration", "customerId email customerCity customerState customerZip customerCountry",
    "attributes")
fire_element = _event("element", "elementId elementCategory", "attributes")
fire_conversion_event = _event(
    "conversion_event", "eventId actionType eventCategory eventPoints", "attributes")
fire_link_click = _event("link_click", "pageId linkName link", "")
fire_impression = _event("impression", "pageId", "vqsp vqre")


# --- The platform overrides

PHONE, TABLET = 1, 2
_LogSink = ctypes.CFUNCTYPE(None, c_void_p, c_char_p)
_overrides, _Overrides = _structure("platform_overrides", [
    ("deviceIdiom", c_int32), ("screenSize", _ScreenSize), ("cachesDirectory", c_char_p),
    ("mainBundleFolder", c_char_p), ("systemVersion", c_char_p), ("logSink", _Callback)])
_set_overrides = _function("set_platform_overrides", c_bool, POINTER(_Overrides))
_last = {}


def set_platform_overrides(*, cachesDirectory=None, mainBundleFolder=None, screenSize=None,
                           deviceIdiom=None, systemVersion=None, logSink=None):
    """screenSize: width and height. logSink: called with each message of the log."""
    def write(_context, text):
        logSink(text.decode("utf-8", "replace"))

    given = _overrides(
        cachesDirectory=_text(cachesDirectory), mainBundleFolder=_text(mainBundleFolder),
        screenSize=_ScreenSize(True, *screenSize) if screenSize else _ScreenSize(),
        deviceIdiom=deviceIdiom or 0, systemVersion=_text(systemVersion))
    _last.update(cachesDirectory=cachesDirectory, mainBundleFolder=mainBundleFolder,
                 screenSize=screenSize, deviceIdiom=deviceIdiom, systemVersion=systemVersion)
    given.logSink = _callback(_LogSink, logSink and write)  # last: held from here on
    return _set_overrides(given)


# --- The default core

_options, _Options = _structure("default_core_options", [
    ("queueFolder", c_char_p), ("transport", _Transport), ("wallClock", _Callback),
    ("certificateFile", c_char_p), ("maxQueuedMessages", _OptionalCount),
    ("maxQueueBytes", _OptionalCount), ("maxDeadLetters", _OptionalCount),
    ("maxConcurrentPosts", _OptionalCount)])
_set_options = _function("default_core_set_options", c_bool, POINTER(_Options))


def set_options(*, queueFolder=None, certificateFile=None, maxQueuedMessages=None,
                maxQueueBytes=None, maxDeadLetters=None, maxConcurrentPosts=None):
    return _set_options(_options(
        queueFolder=_text(queueFolder), certificateFile=_text(certificateFile),
        maxQueuedMessages=_count(maxQueuedMessages), maxQueueBytes=_count(maxQueueBytes),
        maxDeadLetters=_count(maxDeadLetters), maxConcurrentPosts=_count(maxConcurrentPosts)))


_figures = ("accepted delivered dead retried retriedNetwork retriedServer retriedEndpoint refused "
            "refusedFull refusedTooLarge refusedByStorage refusedNotRunning deadLettersDropped "
            "queuedMessages queuedBytes deadLetters").split()
_stats, _Stats = _structure("default_core_stats", [
    ("lastStatus", c_int32), *((name, ctypes.c_uint64) for name in _figures),
    ("durable", c_bool), ("lastError", c_void_p)])
_get_stats = _function("default_core_get_stats", c_bool, POINTER(_Stats))
Stats = namedtuple("Stats", [*_figures, "durable", "lastStatus", "lastError"])


def stats():
    filled = _stats()
    _get_stats(filled)
    return Stats(*(getattr(filled, name) for name in Stats._fields[:-1]), _taken(filled.lastError))


DELIVERED, RETRYING, DEAD = 0, 1, 2
_report, _Report = _structure("delivery_report", [
    ("id", c_char_p), ("moduleName", c_char_p), ("outcome", c_int32), ("status", c_int32),
    ("reason", c_char_p)])
_letter, _Letter = _structure("dead_letter", [
    ("id", c_char_p), ("moduleName", c_char_p), ("body", c_void_p), ("bodyLength", c_size_t),
    ("status", c_int32), ("reason", c_char_p), ("accepted", c_int64), ("died", c_int64)])
_OnReport = ctypes.CFUNCTYPE(None, c_void_p, POINTER(_Report))
_OnLetter = ctypes.CFUNCTYPE(None, c_void_p, POINTER(_Letter))
DeliveryReport = namedtuple("DeliveryReport", "id moduleName outcome status reason")
DeadLetter = namedtuple("DeadLetter", "id moduleName body status reason accepted died")
_set_delivery_callback = _function(
    "default_core_set_delivery_callback", None, c_void_p, c_void_p, c_void_p)
_dead_letters = _function("default_core_dead_letters", c_size_t, _OnLetter, c_void_p)
_replay = _function("default_core_replay_dead_letters", c_size_t, POINTER(_List))
_purge = _function("default_core_purge_dead_letters", c_size_t, POINTER(_List))
_flush = _function("default_core_flush", c_bool, c_int64)
erase_all = _function("default_core_erase_all", c_bool)


def set_delivery_callback(function):
    """Calls function(DeliveryReport) after every attempt, on the library's thread; None ends it."""
    def report(_context, given):
        made = given.contents
        function(DeliveryReport(made.id.decode(), made.moduleName.decode(), made.outcome,
                                made.status, made.reason.decode()))

    given = _callback(_OnReport, function and report)
    _set_delivery_callback(given.call, given.context, given.release)


def flush(seconds):
    return _flush(int(seconds * 1000))


def dead_letters():
    letters = []

    def visit(_context, given):
        dead = given.contents
        letters.append(DeadLetter(dead.id.decode(), dead.moduleName.decode(),
                                  ctypes.string_at(dead.body, dead.bodyLength), dead.status,
                                  dead.reason.decode(), dead.accepted, dead.died))

    _dead_letters(_OnLetter(visit), None)
    return letters


def replay_dead_letters(ids=None):
    """None: all of them."""
    return _replay(None if ids is None else _list(ids))


def purge_dead_letters(ids=None):
    """None: all of them."""
    return _purge(None if ids is None else _list(ids))


@atexit.register
def _detach():
    """The library's threads may outlive the interpreter: nothing of it may be called then.

    A call that is under way is waited for: Python would end its thread, and the process with it.
    """
    set_delivery_callback(None)
    if _last:
        set_platform_overrides(**_last)
    end = time.monotonic() + 5
    while _held and time.monotonic() < end:
        time.sleep(0.01)
