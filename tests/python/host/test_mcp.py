"""The MCP server, asked over real standard input and output by the SDK's own client."""

import asyncio
import shutil
import sys
from collections.abc import AsyncIterator
from contextlib import asynccontextmanager
from pathlib import Path
from typing import Any

from mcp import Client, StdioServerParameters, stdio_client
from mcp.types import CallToolResult, TextContent

FUNCTIONS = "".join(
    f'def shop_part_{number}(first, second):\n    """Sell part {number}."""\n\n'
    for number in range(300)
)


@asynccontextmanager
async def session(repo: Path, log: Path) -> AsyncIterator[Client]:
    command = StdioServerParameters(
        command=sys.executable,
        args=["-m", "codeindex", "mcp", "--repo", str(repo)],
        env={"XDG_CACHE_HOME": str(log.parent / "cache"), "HOME": str(log.parent)},
    )
    with log.open("w") as errors:
        async with Client(stdio_client(command, errlog=errors), read_timeout_seconds=60) as client:
            yield client


def text_of(result: CallToolResult) -> str:
    (content,) = result.content
    assert isinstance(content, TextContent)
    return content.text


def values_of(result: CallToolResult) -> dict[str, Any]:
    assert not result.is_error, result.content
    assert isinstance(result.structured_content, dict)
    return result.structured_content


def test_a_whole_session_from_the_first_index_on(tmp_path: Path) -> None:
    repo = tmp_path / "shop"
    repo.mkdir()
    (repo / "cart.py").write_text(
        'def add_item(cart, item):\n    """Put in."""\n    cart += item\n'
    )
    (repo / "parts.py").write_text(FUNCTIONS)
    (repo / "tests").mkdir()
    (repo / "tests" / "test_cart.py").write_text("def test_add_item(): pass\n")
    reported: list[tuple[float, str | None]] = []

    async def note_progress(progress: float, total: float | None, message: str | None) -> None:
        reported.append((progress, message))

    async def talk() -> None:
        async with session(repo, tmp_path / "log") as client:
            tools = (await client.list_tools()).tools
            assert [tool.name for tool in tools] == ["search", "show"]
            assert all(tool.description and tool.output_schema for tool in tools)

            async def search(question: str, **arguments: Any) -> dict[str, Any]:
                result = await client.call_tool("search", {"question": question, **arguments})
                return values_of(result)

            first = values_of(
                await client.call_tool(
                    "search", {"question": "add_item"}, progress_callback=note_progress
                )
            )
            assert reported[0] == (0.0, "files: 0 of 3")
            assert first["hits"][0] == {
                "place": "cart.py:1-3",
                "symbol": "cart.add_item",
                "kind": "function",
                "signature": "def add_item(cart, item)",
                "ranks": {"exact": 1, "lexical": 1, "file": 1, "semantic": 1},
            }
            assert set(first["channels"].values()) == {"ok"}
            assert (first["note"], first["truncated"]) == (None, False)
            assert first["freshness"]["checked_at"]

            again = await search("add_item")
            assert again["freshness"]["state"] == first["freshness"]["state"]
            (repo / "cart.py").write_text("def put_item(cart, item): pass\n")
            changed = await search("put_item", limit=1)
            assert [hit["symbol"] for hit in changed["hits"]] == ["cart.put_item"]
            assert changed["freshness"]["state"] != first["freshness"]["state"]

            within = await search("item", path="tests", include_tests=True)
            assert {hit["place"] for hit in within["hits"]} == {"tests/test_cart.py:1-1"}
            assert (await search("put_item", path="nowhere"))["hits"] == []
            few = await client.call_tool(
                "search", {"question": "sell a part", "limit": 100, "max_tokens": 500}
            )
            assert values_of(few)["truncated"]
            assert 500 < len(text_of(few)) <= 1500

            shown = values_of(await client.call_tool("show", {"symbol": "put_item"}))
            assert shown["source"] == "def put_item(cart, item): pass"
            module = values_of(
                await client.call_tool("show", {"symbol": "parts.py:1", "max_tokens": 200})
            )
            assert module["source"] == 'def shop_part_0(first, second):\n    """Sell part 0."""'
            assert not module["truncated"]
            whole = values_of(
                await client.call_tool("show", {"symbol": "parts", "max_tokens": 200})
            )
            assert whole["truncated"]
            assert FUNCTIONS.startswith(whole["source"] + "\n")

            for tool, arguments, said in (
                ("search", {"question": "  "}, "The question is empty"),
                ("search", {"question": "x", "limit": 0}, "limit"),
                ("show", {"symbol": "no_such_thing"}, "No symbol is named 'no_such_thing'"),
            ):
                refused = await client.call_tool(tool, arguments)
                assert refused.is_error
                assert said in text_of(refused)
            shutil.rmtree(repo)
            gone = await client.call_tool("search", {"question": "put_item"})
            assert gone.is_error
            assert f"There is no folder {repo}" in text_of(gone)

    asyncio.run(talk())
    assert [done for done, _ in reported] == sorted({done for done, _ in reported})
    assert (tmp_path / "log").read_text() == ""


def test_a_missing_repository_is_a_clear_error(tmp_path: Path) -> None:
    async def talk() -> None:
        async with session(tmp_path / "missing", tmp_path / "log") as client:
            result = await client.call_tool("search", {"question": "anything"})
            assert result.is_error
            assert f"There is no folder {tmp_path / 'missing'}" in text_of(result)

    asyncio.run(talk())
