# SPDX-License-Identifier: Apache-2.0
"""Long calls whose events are iterated over."""

from __future__ import annotations

import queue
import threading
from typing import Any, Callable, Generic, Iterator, Optional, TypeVar

from ._nyxus import Event, Stop

T = TypeVar("T")


class Task(Generic[T]):
    """A long call on a thread of its own; iterating gives its events until it ends.

        with nyxus.Task(camera.rom.upgrade, image) as task:
            for event in task:
                print(event.phase, event.done, event.total)
        print(task.result().rom)

    Takes any function with `on_event` and `stop`, and its other arguments. Of run_batch(), it gives
    pairs: the camera's number, and its event or report. Any thread may ask it to stop. The `with` block
    waits for its end; an exception inside, such as Ctrl-C, asks it to stop first.
    """

    def __init__(self, function: Callable[..., T], *arguments: Any, **keywords: Any) -> None:
        self._stop = Stop()
        self._events: "queue.SimpleQueue[Any]" = queue.SimpleQueue()
        self._value: Optional[T] = None
        self._error: Optional[BaseException] = None
        self._thread = threading.Thread(target=self._run, args=(function, arguments, keywords))
        self._thread.start()

    def __iter__(self) -> Iterator[Any]:
        while (events := self._events.get()) is not None:
            yield events[0] if len(events) == 1 else events
        self._events.put(None)  # for whoever asks once more

    def stop(self) -> None:
        """Asks for a stop at the next safe point."""
        self._stop.request()

    def result(self) -> T:
        """Waits for the end: what the function returns, or raises."""
        self._thread.join()
        if self._error is not None:
            raise self._error
        return self._value  # type: ignore[return-value]

    def __enter__(self) -> Task[T]:
        return self

    def __exit__(self, kind: object, error: Optional[BaseException], trace: object) -> None:
        if error is not None:
            self.stop()
        self._thread.join()

    def _run(self, function: Callable[..., T], arguments: Any, keywords: Any) -> None:
        try:
            self._value = function(*arguments, on_event=self._tell, stop=self._stop, **keywords)
        except BaseException as error:  # pylint: disable=broad-exception-caught
            self._error = error
        self._events.put(None)

    def _tell(self, *event: Any) -> None:
        self._events.put(event)
