# SPDX-License-Identifier: Apache-2.0
"""The native module: what `nyxus` exports. This file is its manual; test and mypy compare it with the
module.

Names, and the words of the enumerations, are those of C++, of the tool and of its JSON. What C++ calls
x() and set_x() is a property here where it takes no argument but the value. Every call may raise
nyxus.Error, and ValueError for a camera that has been closed.

`on_event` is called with each Event, on the thread of the call, within 50 ms; what it raises asks for a stop, and
the call raises it at its end. It cannot use the camera that is worked on. `stop` is a Stop. After
Ctrl-C, or an exception of `on_event`, a change of the ROM hangs its report onto the exception, as
`report`.
"""

import datetime
import enum
import os
from pathlib import Path
from typing import Any, Callable, Iterator, List, Optional, Sequence, Tuple, Union, final, overload

import numpy
import numpy.typing

from ._errors import Error

_Bytes = Union[bytes, bytearray, memoryview, numpy.typing.NDArray[Any]]
_Path = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]
_OnEvent = Optional[Callable[[Event], Any]]
_Color = Sequence[int]
_YCbCr = Tuple[int, int, int]

# --- Words

class RomState(enum.Enum):
    """What the probe has found in the external ROM."""

    FIRMWARE = "firmware"  #: firmware for this chip
    BLANK = "blank"  #: none; the flash has told what it is
    UNKNOWN = "unknown"  #: none, and no flash answers: an EEPROM, or nothing

class Use(enum.Enum):
    """What a camera is opened for."""

    ANYTHING = "anything"  #: streams, too
    TRANSFERS = "transfers"  #: no streams; reads and writes of the ROM take less time

class Phase(enum.Enum):
    """What is being done."""

    READING = "reading"
    READING_AGAIN = "reading again"  #: what will be the only copy, to compare
    UNLOCKING = "unlocking"
    ERASING = "erasing"
    PROGRAMMING = "programming"
    LOCKING = "locking"
    VERIFYING = "verifying"
    VERIFYING_MFI = "verifying MFi"
    WAITING_FOR_THE_CAMERA = "waiting for the camera"  #: to be plugged in
    RESTARTING = "restarting"  #: the camera, until it is back

class EventKind(enum.Enum):
    BEGINS = "begins"  #: phase, total; text: the camera that is waited for
    ADVANCES = "advances"  #: phase, done, total, seconds
    ENDS = "ends"  #: the same
    ABANDONED = "abandoned"  #: the same: it failed or was stopped
    OUTLOOK = "outlook"  #: should the process end now, the ROM would hold `rom`
    STOP_POSTPONED = "stop-postponed"  #: until the ROM is complete and locked
    READ_AGAIN = "read-again"  #: in `phase`, because of `error`, which says where
    KEPT = "kept"  #: `text`, a part of the ROM, stays though the ROM is erased
    NOT_KEPT = "not-kept"  #: `text`, a part of the ROM, will be lost, and why
    BACKUP = "backup"  #: the ROM is kept in the file `text`
    LOST = "lost"  #: the camera is gone: `error`; the ROM holds `rom`. It is waited for
    RETRIES = "retries"  #: the camera `text` is back, and the work begins once more
    INSTALLS = "installs"  #: an upgrade begins: `text`, from which version to which; `version`: before
    CHOSEN = "chosen"  #: of a batch: the camera gets the ChipImages whose chip is `text`

class RomContents(enum.Enum):
    """What the ROM holds, with regard to the image."""

    UNCHANGED = "unchanged"  #: nothing was written
    NEW = "new"  #: the image
    UNVERIFIED = "unverified"  #: the image, but it was not read back
    INCOMPLETE = "incomplete"  #: something between old and new
    ERASED = "erased"  #: nothing
    UNKNOWN = "unknown"  #: nobody can tell

class Keep(enum.Enum):
    """How far what the erase of a flash takes, and the images do not replace, is kept."""

    FIRST64K = "first64k"  #: all that a controller uses
    WHOLE = "whole"  #: the whole part, where the camera can reach it

class Action(enum.Enum):
    READ = "read"
    READ_AGAIN = "read-again"  #: since it will be the only copy
    BACK_UP = "back-up"
    UNLOCK = "unlock"
    ERASE = "erase"
    WRITE_MFI = "write-mfi"
    WRITE_FIRMWARE = "write-firmware"  #: without its header
    WRITE_KEPT = "write-kept"  #: what was there before
    WRITE_HEADER = "write-header"  #: last: until it is there the ROM holds no firmware
    LOCK = "lock"
    READ_BACK = "read-back"
    READ_BACK_MFI = "read-back-mfi"
    READ_BACK_KEPT = "read-back-kept"
    RESTART = "restart"

class Started(enum.Enum):
    """Whether a camera has started from exactly what a backup holds."""

    NO = "no"
    YES = "yes"
    UNKNOWN = "unknown"

class RomRecord(enum.Enum):
    """What the journal says of a ROM, unless the camera contradicts it."""

    NONE = "none"  #: no change of it is known
    INCOMPLETE = "incomplete"  #: something between two contents
    BLANK = "blank"  #: erased
    WRITTEN = "written"  #: complete, but neither read back nor started since
    VERIFIED = "verified"  #: complete and read back, but not started since
    STARTED = "started"  #: the camera has started from it
    NOT_STARTING = "not-starting"  #: complete, but the camera runs the firmware in its chip
    ELSEWHERE = "elsewhere"  #: the camera reports what the journal does not expect

class ImageContents(enum.Enum):
    UNKNOWN = "unknown"
    FIRMWARE = "firmware"
    ROM = "rom"  #: firmware with what else a ROM holds, such as a backup
    MFI = "mfi"

class RateControl(enum.Enum):
    NONE = "none"
    CBR = "cbr"
    VBR = "vbr"
    CONSTANT_QP = "constant-qp"

class FrameType(enum.Enum):
    I = "i"
    IDR = "idr"
    IDR_WITH_HEADERS = "idr-with-headers"

# --- Work that takes its time

@final
class Stop:
    """How any thread ends calls that were given it, at the next safe point: while a camera is read at
    the next 256 bytes, while it is waited for within 50 ms. From the unlocking of the ROM until it is
    locked again, a stop waits. The calls raise Stopped."""

    def __init__(self) -> None: ...
    def request(self) -> None: ...
    @property
    def requested(self) -> bool: ...

@final
class Event:
    @property
    def kind(self) -> EventKind: ...
    @property
    def phase(self) -> Phase: ...
    @property
    def done(self) -> int:
        """Bytes."""
    @property
    def total(self) -> int:
        """Bytes; 0 where nobody knows how long it takes."""
    @property
    def seconds(self) -> float:
        """Since the phase began."""
    @property
    def rom(self) -> RomContents: ...
    @property
    def stop_waits(self) -> bool:
        """Of an outlook: from now on a stop is postponed."""
    @property
    def text(self) -> str: ...
    @property
    def version(self) -> str: ...
    @property
    def error(self) -> Optional[Error]: ...

# --- Cameras

def version() -> str:
    """The library's version, such as "2.0.11"."""

def set_trace(level: int) -> None:
    """What the library prints on standard error: 0 nothing, 1 milestones, 2 more, 3 failures, too."""

def set_h264_standard_order(on: bool = True) -> None:
    """The order of H.264 queries: that of USB video, or that of the first firmware (as it is until it
    is set). A camera rejects the other one (USB: a stalled request). Process-wide."""

def list_cameras() -> List[CameraInfo]:
    """The cameras that are plugged in now, by bus and port. Opens none of them."""

def find_camera(name: str = "") -> CameraInfo:
    """The one camera with this name (CameraInfo.matches()), or the only one there is. CameraGone when
    there is none, OutOfRange when there are several."""

def wait_for_cameras(name: str = "", wait_s: int = 60, on_event: _OnEvent = None,
                     stop: Optional[Stop] = None) -> List[CameraInfo]:
    """The cameras with this name ("" for any), as soon as there is one that can be opened, or what
    there is of them after this time."""

@final
class CameraEvent:
    """A camera has come or gone; each start gives one an address of its own."""

    @property
    def here(self) -> bool: ...
    @property
    def camera(self) -> CameraInfo: ...

@final
class CameraWatch:
    """Tells which cameras come and go, first of those that are there, until it is stopped by any
    thread:

        for event in nyxus.CameraWatch():
            print("here" if event.here else "gone", event.camera.serial)
    """

    def __init__(self, stop: Optional[Stop] = None) -> None: ...
    def next(self, timeout_s: float) -> CameraEvent:
        """TimedOut, Stopped."""
    def __iter__(self) -> CameraWatch: ...
    def __next__(self) -> CameraEvent: ...
    def stop(self) -> None: ...

def open(camera: Union[str, CameraInfo] = "", use: Use = Use.ANYTHING, eeprom_bytes: int = 0) -> Camera:
    """Opens and probes a camera: the only one, or by name; also one whose ROM holds no firmware
    (Camera.rom_state). A ROM that nothing is known of (RomState.UNKNOWN) is taken for an EEPROM of
    `eeprom_bytes`; without, it cannot be changed: UnknownRom. PermissionDenied, Busy, CameraGone;
    NotSupported for what is no camera of ours."""

@final
class CameraInfo:
    """A camera on the bus."""

    @property
    def bus(self) -> int: ...
    @property
    def address(self) -> int:
        """A restart of the camera changes it."""
    @property
    def port_path(self) -> str:
        """"1-2" or "1-2.3", as the kernel names it; a restart keeps it."""
    @property
    def serial(self) -> str:
        """As the camera tells it, "" if it has none."""
    @property
    def product(self) -> str: ...
    @property
    def bus_address(self) -> str:
        """Bus and address: "1:5"."""
    def matches(self, name: str) -> bool:
        """Whether people may mean it by this: serial number, port path or place (1:5, 001:005)."""
    def __eq__(self, other: object) -> bool: ...
    def __hash__(self) -> int: ...

@final
class Camera:
    """An open, probed camera: `with nyxus.open() as camera: ...`.

    It is closed at the end of the `with` block, by close(), when nobody refers to it or its parts any
    more, and when the program ends. What is known of it without asking it stays.
    """

    @property
    def info(self) -> CameraInfo: ...
    @property
    def chip(self) -> str:
        """Name of the controller chip, such as "NY6410"."""
    @property
    def family(self) -> str: ...
    @property
    def name(self) -> str:
        """For people: "camera 1:5 (NY6410, serial ABC)"."""
    @property
    def internal_version(self) -> str:
        """Version text of the firmware inside the chip."""
    @property
    def setfile_version(self) -> str: ...
    @property
    def firmware_version(self) -> int:
        """Version of the firmware in the external ROM."""
    @property
    def version(self) -> str:
        """Version of the firmware that it runs from its ROM, "0x0205", or "mask ROM"."""
    @property
    def running(self) -> str:
        """The same with that of the sensor application, to tell two apart; "" when it runs the one in
        its chip."""
    @property
    def firmware_sentence(self) -> str:
        """"runs external firmware 0x0205", or why it does not."""
    @property
    def runs_external_firmware(self) -> bool: ...
    @property
    def rom_state(self) -> RomState: ...
    @property
    def flash(self) -> Optional[Flash]:
        """The SPI flash behind the controller; None for an EEPROM."""
    @property
    def sensor_application(self) -> int: ...
    @property
    def xu_version(self) -> Optional[int]:
        """Of the extension unit; None where older firmware has none."""
    @property
    def has_memory_extension(self) -> bool: ...
    @property
    def closed(self) -> bool:
        """Also when it was lost in the middle of a change of its ROM and has not come back."""

    def close(self) -> None:
        """Ends its stream and closes it. Waits for other threads that use it. Calling it again does
        nothing."""
    def __enter__(self) -> Camera: ...
    def __exit__(self, *args: object) -> None: ...

    def restart(self, wait_s: int = 30, backups: Optional[Backups] = None, on_event: _OnEvent = None,
                stop: Optional[Stop] = None) -> None:
        """Restarts the camera and waits until it is back: this object is the same camera then, with
        what a new probe has learnt. Its stream has ended. From then on the ROM is taken for what the
        camera has started from. NotBack, TimedOut; the camera is closed then."""
    def check_started(self, backups: Optional[Backups] = None) -> None:
        """NotStarted unless the camera runs firmware from its ROM, and, after a restart() here, the one
        that was programmed."""

    # Its parts.

    @property
    def rom(self) -> Rom: ...
    @property
    def osd(self) -> Osd: ...
    @property
    def h264(self) -> H264: ...
    @property
    def fingerprint(self) -> Fingerprint: ...

    # Picture.

    flip: bool  #: the picture is upside down
    mirror: bool  #: left and right are swapped
    mjpeg_gain: int  #: quantisation gain of MJPEG: 1 to 63, but not 32
    def list_controls(self) -> List[Control]:
        """The standard controls that the camera has, such as brightness and zoom."""
    def get_control(self, name: str) -> Control: ...
    def set_control(self, name: str, value: int) -> None:
        """A value beyond its range is refused: OutOfRange."""

    # Video.

    def list_formats(self) -> List[VideoFormat]:
        """What the camera streams, in its order. Asks the camera nothing."""
    def stream(self, width: int = 640, height: int = 480, fps: float = 0, format: str = "YUYV") -> Stream:
        """Starts video in one of list_formats(); fps 0 is the first rate that the camera offers.

            with camera.stream(1280, 720) as stream:
                for frame in stream:
                    print(frame.pixels.mean())

        NotSupported for what the camera does not stream, Busy while it streams; Error (origin "video",
        -11) where the kernel lends too little memory: the message tells what to do.
        """
    def take_picture(self, width: int = 640, height: int = 480, fps: float = 0, format: str = "YUYV",
                     timeout_s: float = 5) -> Frame:
        """The first complete frame of a stream. TimedOut."""

    # Peripherals; nyxus/peripheral.h has the ranges.

    def set_gpio(self, pin: int, high: bool) -> None:
        """Drives pin 0 to 15. Writes that fail are not noticed."""
    def gpio(self) -> List[Optional[bool]]:
        """What is driven on pins 0 to 15; None: nothing."""
    def led(self, index: int) -> int:
        """State bits of an LED (mask 0x58); Busy while an update is pending."""
    def set_led(self, index: int, state: int) -> None: ...
    i2c_config: int  #: address of the I2C device in 8-bit form; bit 0 is the addressing mode
    @property
    def motion_setting(self) -> bytes:
        """The four bytes of the motion detection, which the firmware defines."""
    @motion_setting.setter
    def motion_setting(self, setting: _Bytes) -> None: ...
    def poll_motion(self) -> bool:
        """Whether there was motion since the last poll; acknowledges it."""

    # Memories; addresses and sizes have 16 bits, in the MCU 8; I2C: addresses 9 bits, 1 to 8 bytes.

    def read_registers(self, address: int, size: int) -> bytes: ...
    def write_registers(self, address: int, data: _Bytes) -> None: ...
    def read_sensor(self, address: int, size: int) -> bytes: ...
    def write_sensor(self, address: int, data: _Bytes) -> None: ...
    def read_mcu(self, address: int, size: int) -> bytes: ...
    def write_mcu(self, address: int, data: _Bytes) -> None: ...
    def read_i2c(self, address: int, size: int) -> bytes: ...
    def write_i2c(self, address: int, data: _Bytes) -> None: ...

    # Raw requests to the vendor's extension unit, with the lengths that this camera has announced.

    def xu_controls(self) -> List[XuControl]: ...
    def get_xu(self, selector: int) -> bytes:
        """NotSupported when the camera's table lacks the control."""
    def set_xu(self, selector: int, data: _Bytes) -> None:
        """OutOfRange unless the data has the control's size."""

@final
class Flash:
    """The SPI flash behind the controller."""

    @property
    def name(self) -> str:
        """Of the part; "" for one that is not in the catalogue."""
    @property
    def id(self) -> bytes:
        """Maker, type, capacity."""
    @property
    def part_bytes(self) -> int:
        """Of the whole part."""

@final
class XuControl:
    @property
    def selector(self) -> int: ...
    @property
    def name(self) -> str: ...
    @property
    def size(self) -> int:
        """Bytes."""

@final
class Control:
    """A standard control, as the camera has it now; nyxus/streaming.h has the units."""

    @property
    def name(self) -> str: ...
    @property
    def minimum(self) -> int: ...
    @property
    def maximum(self) -> int: ...
    @property
    def step(self) -> int: ...
    @property
    def default_value(self) -> int: ...
    @property
    def value(self) -> int: ...

@final
class OsdRectangle:
    """A filled rectangle over the picture, in cells of 16x16 pixels."""

    @property
    def index(self) -> int: ...
    @property
    def column(self) -> int: ...
    @property
    def row(self) -> int: ...
    @property
    def width(self) -> int: ...
    @property
    def height(self) -> int: ...
    @property
    def shown(self) -> bool: ...

@final
class Osd:
    """Text, date and windows over the video."""

    enabled: bool
    def reset(self) -> None:
        """Clears everything."""
    def text(self, line: int) -> str: ...
    def set_text(self, line: int, text: str) -> None:
        """Line 0 to 7, up to 16 ASCII characters; "" clears it."""
    time: datetime.datetime  #: the camera's clock, 2000 to 2099; ValueError while it shows no valid time
    @property
    def datetime(self) -> bytes:
        """Year - 2000, month, day, hour, minute, second, column, row."""
    @datetime.setter
    def datetime(self, record: _Bytes) -> None: ...
    @property
    def shows_time(self) -> bool:
        """Whether the stamp is shown while the display is `enabled`."""
    @property
    def transparent(self) -> bool: ...
    def show_time(self, on: bool = True) -> None:
        """Shows the date-time stamp, together with `enabled`."""
    def set_transparent(self, on: bool = True) -> None:
        """Lets the picture shine through the background of the text."""
    @property
    def window(self) -> OsdRectangle:
        """The one that was set last."""
    @property
    def colors(self) -> Tuple[_YCbCr, _YCbCr, _YCbCr]:
        """Of the text, its background and the windows."""
    def set_window(self, index: int, column: int, row: int, width: int, height: int,
                   shown: bool = True) -> None:
        """A filled rectangle, in cells of 16x16 pixels; index 0 to 3."""
    def set_colors(self, text: _Color, background: _Color, windows: _Color) -> None:
        """Y, Cb and Cr of the text, its background and the windows."""

@final
class Bitrate:
    """Bit/s."""

    def __init__(self, peak: int, average: int) -> None: ...
    @property
    def peak(self) -> int: ...
    @property
    def average(self) -> int: ...

@final
class QpRange:
    """Bounds of the quantisation parameter, 0 to 51."""

    def __init__(self, frame_types: int, least: int, most: int) -> None: ...
    @property
    def frame_types(self) -> int:
        """Sum of 1 = I, 2 = P, 4 = B frames."""
    @property
    def least(self) -> int: ...
    @property
    def most(self) -> int: ...

@final
class H264:
    """The H.264 encoder; see set_h264_standard_order()."""

    @property
    def rate_control(self) -> RateControl: ...
    def set_rate_control(self, mode: RateControl, layer: int = 0) -> None: ...
    @property
    def bitrate(self) -> Bitrate: ...
    def set_bitrate(self, rate: Bitrate, layer: int = 0) -> None: ...
    @property
    def qp_range(self) -> QpRange: ...
    def set_qp_range(self, range: QpRange, layer: int = 0) -> None: ...
    iframe_period: int  #: frames from one I-frame to the next
    format: int  #: stream format, 0 or 1
    def request_frame(self, type: FrameType, layer: int = 0) -> None:
        """Asks for a frame of a type as the next one."""
    def reset(self, layer: int = 0) -> None: ...
    @property
    def version(self) -> int:
        """Version of the payload layout, binary-coded decimal: 0x0100 is 1.00."""

@final
class Fingerprint:
    """Fingerprint-reader boards; nyxus/fingerprint.h says what each call does."""

    def reset(self) -> None: ...
    def reset_pin(self) -> None: ...
    def stream(self) -> None:
        """Leaves the snapshot mode."""
    def snapshot(self) -> None:
        """Enters it: the sensor waits for trigger()."""
    def trigger(self) -> None: ...
    def set_power(self, on: bool) -> None: ...
    def set_led(self, on: bool) -> None: ...
    @property
    def touch(self) -> int: ...
    @property
    def speed(self) -> int: ...
    def read(self, address: int, size: int) -> bytes:
        """The customer's window of the EEPROM, 0x2400 to 0x7FFF."""
    def write(self, address: int, data: _Bytes, backup: bool = True, backups: Optional[Backups] = None,
              on_event: _OnEvent = None, stop: Optional[Stop] = None) -> Report:
        """Keeps what the ROM holds, writes there and reads back. OutOfRange, NotSupported for a flash."""

# --- Video

@final
class VideoFormat:
    """A size of a format that the camera streams, with its rates."""

    @property
    def format(self) -> str:
        """"YUYV", "MJPG", or as the camera announces it."""
    @property
    def width(self) -> int: ...
    @property
    def height(self) -> int: ...
    @property
    def rates(self) -> List[float]:
        """Frames per second; of a range, its ends."""

@final
class StreamStatus:
    """What a stream has settled on, and what became of its frames."""

    @property
    def rate(self) -> float:
        """Frames per second."""
    @property
    def payload_bytes(self) -> int: ...
    @property
    def frames(self) -> int:
        """That were good."""
    @property
    def incomplete(self) -> int:
        """That were dropped: too short, or no JPEG."""
    @property
    def late(self) -> int:
        """That were dropped since nobody took them in time."""

@final
class Frame:
    """A frame. YUYV has two bytes a pixel, row after row, and is complete; MJPG is a JPEG file.

    It is a buffer of bytes (`numpy.asarray(frame)`, `memoryview(frame)`): of
    height x width x 2 for YUYV. It has its bytes for itself, may be kept, and be drawn into: taking it
    has copied them once.
    """

    @property
    def format(self) -> str: ...
    @property
    def width(self) -> int: ...
    @property
    def height(self) -> int: ...
    @property
    def sequence(self) -> int:
        """A gap tells of lost frames."""
    @property
    def time_us(self) -> int:
        """When it had come as a whole: microseconds of time.monotonic()."""
    @property
    def pixels(self) -> numpy.typing.NDArray[numpy.uint8]:
        """YUYV as height x width x 2: an array on the frame's own memory. Needs numpy."""
    @property
    def data(self) -> memoryview:
        """All bytes in a row, on the frame's own memory."""
    def __len__(self) -> int:
        """Bytes."""

@final
class Stream:
    """Running video; iterating over it gives frames as they come, until stop().

    Up to four frames wait for being taken; when one more comes, the oldest is dropped. It ends with its
    `with` block, by stop(), and when its camera is closed. One thread at a time takes frames; others
    may use the camera meanwhile.
    """

    def next(self, timeout_s: float = 5) -> Frame:
        """The next frame. TimedOut when none comes in time, CameraGone, Stopped. Iterating is the
        same with five seconds."""
    def __iter__(self) -> Iterator[Frame]: ...
    def __next__(self) -> Frame: ...
    @property
    def status(self) -> StreamStatus:
        """Also after the end."""
    def stop(self) -> None:
        """Ends the stream, and a wait of another thread for its next frame."""
    def __enter__(self) -> Stream: ...
    def __exit__(self, *args: object) -> None: ...

# --- Images

@final
class Firmware:
    """Firmware for the external ROM, without the 0xFF bytes at its end: 66 to 32,768 bytes."""

    def __init__(self, data: _Bytes, name: str = "the image") -> None:
        """`name` stands for it in messages. WrongImage, also for one that says of itself that it is
        truncated or damaged."""
    @staticmethod
    def load(path: _Path) -> Firmware:
        """FileError, WrongImage."""
    @staticmethod
    def load_rom(path: _Path) -> Firmware:
        """The contents of a whole ROM, such as a backup."""
    @property
    def data(self) -> bytes: ...
    @property
    def digest(self) -> str:
        """SHA-256 of all bytes that were read: that of the file."""
    @property
    def signature(self) -> str:
        """The two characters with which the internal firmware version of its chip begins."""
    @property
    def kind(self) -> Optional[ImageKind]:
        """What it says of itself, where its kind does."""
    @property
    def version(self) -> Optional[str]:
        """The version that a camera reports which runs it, where its kind tells: "0x0205"."""
    def __len__(self) -> int: ...

@final
class Mfi:
    """Accessory information, which lies in the ROM at 0x6000."""

    def __init__(self, data: _Bytes, name: str = "the image") -> None: ...
    @staticmethod
    def load(path: _Path) -> Mfi: ...
    @property
    def data(self) -> bytes: ...
    @property
    def digest(self) -> str:
        """SHA-256 of the bytes as they were read, without a serial number that was put into it."""
    serial: str
    """The number that was put into it, "" if none was. Setting it puts it into the USB descriptor and
    the record list: WrongImage, and nothing is changed, when it does not have the length that the image
    is made for."""
    @property
    def is_for_one_camera(self) -> bool: ...
    def __len__(self) -> int: ...

@final
class Images:
    """What goes into a ROM. Where Images are wanted, a Firmware will do."""

    def __init__(self, firmware: Firmware, mfi: Optional[Mfi] = None, reports: str = "") -> None:
        """`reports`: the version that a camera then reports, where somebody says so."""
    @property
    def firmware(self) -> Firmware: ...
    @property
    def mfi(self) -> Optional[Mfi]: ...
    @property
    def reports(self) -> str: ...
    @property
    def version(self) -> str:
        """What is said of it, or else what the firmware says of itself; "": nobody knows."""

_Images = Union[Images, Firmware]

@final
class ImageKind:
    @property
    def name(self) -> str: ...
    @property
    def bytes(self) -> int: ...
    @property
    def version(self) -> str: ...
    @property
    def problem(self) -> str:
        """Why it is truncated or damaged; "" when it is whole."""

@final
class MfiPart:
    @property
    def name(self) -> str: ...
    @property
    def address(self) -> int: ...
    @property
    def size(self) -> int: ...

@final
class MfiFacts:
    @property
    def bytes(self) -> int: ...
    @property
    def serial(self) -> str: ...
    @property
    def parts(self) -> List[MfiPart]: ...

@final
class ImageFacts:
    """What a file tells without a camera. What nobody knows of it is empty."""

    @property
    def contents(self) -> ImageContents: ...
    @property
    def bytes(self) -> int: ...
    @property
    def sha256(self) -> str: ...
    @property
    def firmware(self) -> Optional[Firmware]: ...
    @property
    def kind(self) -> Optional[ImageKind]: ...
    @property
    def chips(self) -> List[str]:
        """Whose signature it has, by name."""
    @property
    def rom_bytes(self) -> int: ...
    @property
    def larch_rom_bytes(self) -> int: ...
    @property
    def firmware_end(self) -> int: ...
    @property
    def mfi(self) -> Optional[MfiFacts]: ...

def inspect_image(path: _Path) -> ImageFacts:
    """Looks at a file of up to 16 MiB, whatever it holds. FileError, WrongImage."""

# --- Manifests, and what is trusted; docs/signing.md

@final
class TrustFolders:
    """Where it stands what is trusted: root's folder, the user's, and the state folder."""

    def __init__(self, system: _Path, user: _Path, state: _Path) -> None: ...
    @staticmethod
    def usual() -> TrustFolders: ...
    @property
    def system(self) -> Path: ...
    @property
    def user(self) -> Path: ...
    @property
    def state(self) -> Path: ...

@final
class Trust:
    @property
    def needs_signature(self) -> bool: ...
    @property
    def allow_unsigned(self) -> bool: ...
    def check_bare_image(self, file: _Path) -> None:
        """Untrusted where an image that no manifest names may not be used."""

def find_trust(folders: Optional[TrustFolders] = None) -> Trust:
    """What root and the user trust. Untrusted where nobody can know."""

@final
class Signature:
    @property
    def key(self) -> str: ...
    @property
    def comment(self) -> str: ...

@final
class ManifestEntry:
    @property
    def chip(self) -> str: ...
    @property
    def image(self) -> str: ...
    @property
    def sha256(self) -> str: ...
    @property
    def reports(self) -> str: ...
    @property
    def mfi(self) -> str: ...
    @property
    def mfi_sha256(self) -> str: ...

@final
class Manifest:
    """A manifest that may be used."""

    @property
    def product(self) -> str: ...
    @property
    def version(self) -> str: ...
    @property
    def firmware(self) -> List[ManifestEntry]: ...
    @property
    def folder(self) -> Path: ...
    @property
    def signature(self) -> Optional[Signature]: ...
    @property
    def unsigned_because(self) -> str: ...
    def load_images(self) -> List[ChipImages]:
        """All that it names; each file is compared with its digest. FileError, WrongImage."""
    def check_newest(self, folders: Optional[TrustFolders] = None) -> None:
        """Downgrade when a newer one of its product has been remembered."""
    def remember(self, folders: Optional[TrustFolders] = None) -> None: ...

def load_manifest(path: _Path, trust: Trust) -> Manifest:
    """Reads a manifest and the signature beside it. FileError, WrongImage, Untrusted."""

@final
class ChipImages:
    """Images, and the chip that they are for; "": all."""

    def __init__(self, images: _Images, chip: str = "") -> None: ...
    @property
    def chip(self) -> str: ...
    @property
    def images(self) -> Images: ...

# --- The external ROM

@final
class UpgradeOptions:
    def __init__(self, *, always: bool = False, backup: bool = True, verify: bool = True, wait_s: int = 5,
                 keep: Keep = Keep.FIRST64K, discard_mfi: bool = False,
                 discard_reserved: bool = False) -> None: ...
    @property
    def always(self) -> bool:
        """Also when the ROM holds the images already."""
    @property
    def backup(self) -> bool:
        """Keep what is replaced, unless that is blank."""
    @property
    def verify(self) -> bool:
        """Read back and compare."""
    @property
    def wait_s(self) -> int:
        """For a camera that is lost in the middle."""
    @property
    def keep(self) -> Keep: ...
    @property
    def discard_mfi(self) -> bool:
        """Do not keep the MFi image."""
    @property
    def discard_reserved(self) -> bool:
        """Do not keep the reserved area."""

@final
class Step:
    @property
    def action(self) -> Action: ...
    @property
    def address(self) -> int: ...
    @property
    def size(self) -> int: ...

@final
class Part:
    """A part of what the ROM holds."""

    @property
    def name(self) -> str: ...
    @property
    def address(self) -> int: ...
    @property
    def size(self) -> int: ...
    @property
    def why(self) -> str:
        """Of what is not kept."""

@final
class Plan:
    """What an upgrade will do, step by step, and what that costs."""

    @property
    def steps(self) -> List[Step]: ...
    @property
    def kept(self) -> List[Part]: ...
    @property
    def replaced(self) -> List[Part]: ...
    @property
    def lost(self) -> List[Part]: ...
    @property
    def unreachable(self) -> List[Part]: ...
    @property
    def up_to_date(self) -> bool:
        """Nothing has to be written."""
    @property
    def transfers(self) -> int: ...
    @property
    def pauses_s(self) -> float: ...

class Report:
    """How a change of the ROM ended."""

    @property
    def rom(self) -> RomContents: ...
    @property
    def up_to_date(self) -> bool:
        """Nothing had to be done."""
    @property
    def stopped(self) -> bool: ...
    @property
    def left_unlocked(self) -> bool:
        """The ROM is complete, but could not be locked again."""
    @property
    def backup(self) -> Path:
        """Of what was replaced; Path(".") if none was kept."""
    @property
    def bytes(self) -> int:
        """Of the images that were written."""
    @property
    def version_before(self) -> str: ...
    @property
    def version_after(self) -> str:
        """Of a batch that restarts its cameras."""
    @property
    def kept(self) -> List[str]:
        """Parts of the ROM that stayed."""

@final
class Difference:
    @property
    def count(self) -> int:
        """Bytes."""
    @property
    def first_offsets(self) -> List[int]: ...

@final
class Rom:
    """The external ROM of a camera."""

    @property
    def size(self) -> int:
        """Bytes that the controller uses."""
    @property
    def has_spi_flash(self) -> bool:
        """An SPI flash, otherwise an I2C EEPROM."""
    @property
    def readable_bytes(self) -> int: ...
    def read(self, address: int, size: int, twice: bool = False, on_event: _OnEvent = None,
             stop: Optional[Stop] = None) -> bytes:
        """Each exchange is looked at, and tried again where it has not gone well; `twice`: what will be
        the only copy. UnreliableReads where the camera cannot be believed; NotSupported beyond
        `readable_bytes`."""
    def dump(self, on_event: _OnEvent = None, stop: Optional[Stop] = None) -> bytes:
        """All that the controller uses."""
    def compare(self, images: _Images, on_event: _OnEvent = None, stop: Optional[Stop] = None) -> Difference:
        """The ROM with the firmware, as far as that goes."""
    def check_images(self, images: _Images) -> None:
        """WrongImage for images that are not for this camera."""
    def choose_images(self, all: Sequence[Union[ChipImages, Images]], allow_downgrade: bool = False) -> Images:
        """Those for this camera. WrongImage when there are none, Downgrade when it runs a newer
        version."""
    def check_reports(self, images: _Images) -> None:
        """NotStarted unless the camera reports the version of these images, where that is known."""
    def plan(self, images: _Images, options: UpgradeOptions = ..., on_event: _OnEvent = None,
             stop: Optional[Stop] = None) -> Plan:
        """What upgrade() would do; reads what it may have to keep."""
    def upgrade(self, images: _Images, options: UpgradeOptions = ..., backups: Optional[Backups] = None,
                on_event: _OnEvent = None, stop: Optional[Stop] = None) -> Report:
        """Reads the ROM, keeps what it holds, unlocks, erases (SPI flash), writes MFi image, body and,
        last, the header, locks, reads everything back. A camera that goes away in the middle and comes
        back is programmed once more.

        WrongImage before anything is written; Incomplete where the ROM holds no firmware at the end;
        Mismatch, Protected, BackupNotKept, ... Errors carry the `report`. A board that protects its
        EEPROM by GPIO 0 needs camera.set_gpio(0, False) first.
        """
    def recover(self, file: _Path = "", although_healthy: bool = False, options: UpgradeOptions = ...,
                backups: Optional[Backups] = None, on_event: _OnEvent = None,
                stop: Optional[Stop] = None) -> Report:
        """Brings a camera back: upgrade() with a file, or with the latest backup that it has started
        from. NothingToRecover, NoBackup, UncertainBackup."""
    def write(self, address: int, data: _Bytes, options: UpgradeOptions = ...,
              backups: Optional[Backups] = None, on_event: _OnEvent = None,
              stop: Optional[Stop] = None) -> Report:
        """Writes a part of the ROM, and leaves the rest as it is, with all that upgrade() does."""
    def erase(self, backup: bool = True, backups: Optional[Backups] = None, on_event: _OnEvent = None,
              stop: Optional[Stop] = None) -> Report:
        """Keeps what an SPI flash holds, erases it and looks whether it is blank; the camera runs the
        firmware in its chip after the next restart. NotSupported for an EEPROM."""
    def read_reserved(self) -> bytes:
        """The reserved area of the flash, 256 bytes."""
    def history(self, backups: Optional[Backups] = None) -> RomHistory:
        """The state of the ROM: what the journal says, and the camera reports."""

@final
class Backup:
    """What a ROM held at some time, and what is known of it."""

    @property
    def name(self) -> str: ...
    @property
    def file(self) -> Path: ...
    @property
    def sequence(self) -> int: ...
    @property
    def time(self) -> str:
        """UTC, "2026-05-01T12:00:00Z"."""
    @property
    def chip(self) -> str: ...
    @property
    def serial(self) -> str: ...
    @property
    def port(self) -> str: ...
    @property
    def running(self) -> str: ...
    @property
    def bytes(self) -> int: ...
    @property
    def sha256(self) -> str: ...
    @property
    def started(self) -> Started: ...
    @property
    def how(self) -> str:
        """That is known."""

@final
class RomHistory:
    @property
    def rom(self) -> RomRecord: ...
    @property
    def since(self) -> str: ...
    @property
    def operation(self) -> str: ...
    @property
    def backup(self) -> str: ...
    @property
    def certain(self) -> bool: ...
    @property
    def needs_care(self) -> bool:
        """Firmware is not to be expected in it."""

@final
class Backups:
    """The store of backups and journals; without a folder that of this user, which the tool has, too."""

    @overload
    def __init__(self) -> None: ...
    @overload
    def __init__(self, folder: _Path) -> None: ...
    @property
    def state_folder(self) -> Path: ...
    @overload
    def list(self) -> List[Backup]: ...
    @overload
    def list(self, camera: CameraInfo) -> List[Backup]: ...
    def find(self, name: str) -> Backup:
        """By its name, or by the path of its file. NoBackup."""
    def latest(self, camera: Camera) -> Backup:
        """The latest one that this camera has started from. NoBackup, UncertainBackup."""
    def candidates(self, camera: Camera) -> List[Backup]:
        """What may be this camera's and is not known to be useless."""
    def read(self, backup: Backup) -> bytes:
        """Mismatch when the bytes are not what was kept."""
    def prune(self, keep: int, only_tell: bool = False) -> List[Backup]:
        """Removes all but the `keep` latest ones of each unit, and those that are needed."""
    def history(self, camera: CameraInfo) -> RomHistory:
        """What the journal says of a camera that is not open."""

# --- Many cameras at once

@final
class BatchOptions:
    def __init__(self, *, upgrade: UpgradeOptions = ..., queue_depth: int = 16, eeprom_bytes: int = 0,
                 restart: bool = False, allow_downgrade: bool = False, plug_wait_s: int = 0,
                 silence_s: int = 60, at_once: int = 0, helper: str = "") -> None: ...
    @property
    def upgrade(self) -> UpgradeOptions: ...
    @property
    def queue_depth(self) -> int:
        """Requests under way at a time."""
    @property
    def eeprom_bytes(self) -> int:
        """As of open()."""
    @property
    def restart(self) -> bool:
        """Restart each camera, and look whether it has started."""
    @property
    def allow_downgrade(self) -> bool: ...
    @property
    def plug_wait_s(self) -> int:
        """For a camera that is not there when its turn comes."""
    @property
    def silence_s(self) -> int:
        """Without an event; then its camera is given up."""
    @property
    def at_once(self) -> int:
        """So many cameras at a time; 0: all."""
    @property
    def helper(self) -> str:
        """The program that works on one camera; "": the installed one."""

@final
class BatchReport(Report):
    """How a camera of a batch ended."""

    @property
    def started(self) -> bool:
        """False: the batch was stopped before its turn."""
    @property
    def error(self) -> Optional[Error]: ...
    @property
    def said(self) -> List[str]:
        """Without a report of its process: what was printed last."""

def run_batch(cameras: Sequence[Union[CameraInfo, str]], images: Sequence[Union[ChipImages, Images]],
              options: BatchOptions = ..., backups: Optional[Backups] = None,
              on_event: Optional[Callable[[int, Union[Event, BatchReport]], Any]] = None,
              stop: Optional[Stop] = None) -> List[BatchReport]:
    """Upgrades cameras, which are named by their port, each in a process of its own and with the
    images for its chip; a report for each, which may have an error. `on_event` is called with the
    camera's number and an Event, or its BatchReport when it has ended. A stop starts no more cameras and
    lets each come to a safe point; a second Ctrl-C ends their processes. What interrupts it has the
    `reports`."""
