"""What is read of a source file, language by language."""

import pytest

from codeindex.indexing.comments import comment_text, without_licence
from codeindex.indexing.extraction import extract_symbols
from codeindex.utils.language_filter import language_of

# For each path a source and what is read of it: kind, qualified name | signature | docstring.
CASES = {
    "src/app/web/__init__.py": (
        '''
"""Web things."""
LIMIT = 3
"""Most of them."""
__all__ = ["a"]

# Says hello.
@route("/")
async def hello(a,
                b: int = 1) -> str:  # noqa
    def inner(): pass
    LOCAL = 1

class View(Base):
    """Shows."""
    DEEP = {
        "a": 1,
    }
    name = "x"
    def get(self): "Gets."
''',
        """
module app.web |  | Web things.
constant app.web.LIMIT | LIMIT = 3 | Most of them.
function app.web.hello | async def hello(a, b: int = 1) -> str | Says hello.
function app.web.hello.inner | def inner() |
class app.web.View | class View(Base) | Shows.
constant app.web.View.DEEP | DEEP = {…} |
method app.web.View.get | def get(self) | Gets.
""",
    ),
    "lib/list.c": (
        """
/* list.c -- chained lists
 * Copyright (C) 1999 Somebody
 */
#define LIST_MAX 16 /* entries */
#define LIST_AT(l, i) ((l)->items[i])
typedef struct list { int n; } list;
typedef enum { ASC, DESC } order;
static const char *const names[] = {"a"};
/** Appends. */
int *list_add(list *l, int value);

/* ------ */
// Appends to the end.
// And returns it.
int *list_add(list *l,
              int value)
{ return 0; }
""",
        """
module lib/list.c |  | list.c -- chained lists
constant LIST_MAX | #define LIST_MAX 16 |
macro LIST_AT | #define LIST_AT(l, i) ((l)->items[i]) |
struct list | typedef struct list |
enum order | typedef enum order |
constant order::ASC | ASC |
constant order::DESC | DESC |
constant names | static const char *const names[] = {"a"} |
function list_add | int *list_add(list *l, int value) | Appends.
function list_add | int *list_add(list *l, int value) | Appends to the end. / And returns it.
""",
    ),
    "include/shape.h": (
        """
#pragma once
namespace geo::flat {
/// A closed line.
template <typename T>
class Shape : public Base<T> {
 public:
  Shape();
  ~Shape();
  Q_OBJECT(Shape)
  bool operator==(const Shape& other) const;
  static constexpr int kSides = 4;
  using Point = T;
};
}
int geo::flat::Shape<int>::area(int scale) const { return 1; }
Shape::Shape() : sides_(0) {}
""",
        """
module include/shape.h |  |
class geo::flat::Shape | class Shape : public Base<T> | A closed line.
method geo::flat::Shape::Shape | Shape() |
method geo::flat::Shape::~Shape | ~Shape() |
method geo::flat::Shape::operator== | bool operator==(const Shape& other) const |
constant geo::flat::Shape::kSides | static constexpr int kSides = 4 |
type geo::flat::Shape::Point | using Point = T |
method geo::flat::Shape::area | int geo::flat::Shape<int>::area(int scale) const |
method Shape::Shape | Shape::Shape() |
""",
    ),
    "gin/context.go": (
        """
// Package gin serves.
package gin

// Context is one request.
type Context struct { Keys map[string]any }
type (
	// Handler handles.
	Handler func(*Context)
	Writer interface { Write(b []byte) error }
)
const a, B = 1, 2

//go:noinline
func (c *Context[T]) JSON(code int) error { return nil }
func New() *Context { const local = 1; return nil }
""",
        """
module gin/context.go |  | Package gin serves.
struct gin.Context | type Context struct | Context is one request.
type gin.Handler | Handler func(*Context) | Handler handles.
interface gin.Writer | Writer interface |
method gin.Writer.Write | Write(b []byte) error |
constant gin.a | const a, B = 1, 2 |
constant gin.B | const a, B = 1, 2 |
method gin.Context.JSON | func (c *Context[T]) JSON(code int) error |
function gin.New | func New() *Context |
""",
    ),
    "src/Gson.java": (
        """
/* Licensed to you under the Apache License. */
package com.acme;

/** Converts. */
@Keep("x") public final class Gson<T> extends Base {
  private static final Adapter<T> NONE = new Adapter<T>() {
    @Override public void write(T value) {}
  };
  private int count;
  @Override
  // hidden
  public <R> R get(int a) throws E { return null; }
  Gson() {}
  enum Mode { LAX }
  record Pair(int a) {}
  @interface Mark { int value(); }
}
""",
        """
module src/Gson.java |  |
class com.acme.Gson | public final class Gson<T> extends Base | Converts.
constant com.acme.Gson.NONE | private static final Adapter<T> NONE = new Adapter<T>() |
method com.acme.Gson.NONE.write | public void write(T value) |
method com.acme.Gson.get | public <R> R get(int a) throws E |
method com.acme.Gson.Gson | Gson() |
enum com.acme.Gson.Mode | enum Mode |
constant com.acme.Gson.Mode.LAX | LAX |
class com.acme.Gson.Pair | record Pair(int a) |
interface com.acme.Gson.Mark | @interface Mark |
method com.acme.Gson.Mark.value | int value() |
""",
    ),
    "lib/app/index.js": (
        """
'use strict'
var http = require('http')
export const LIMIT = 3
const add = (a, b) => a + b
/**
 * Uses it.
 */

app.use = function use(fn) { const inside = 1 }
View.prototype.render = async function () {}
exports.z = (x) => x
class Foo extends Bar { static make(a) {} run = () => 1; #hide() {} }
const table = { get: function () {}, put() {} }
""",
        """
module lib.app |  |
constant lib.app.LIMIT | export const LIMIT = 3 |
function lib.app.add | const add = (a, b) |
method lib.app.app.use | app.use = function use(fn) | Uses it.
method lib.app.View.render | View.prototype.render = async function () |
function lib.app.z | exports.z = (x) |
class lib.app.Foo | class Foo extends Bar |
method lib.app.Foo.make | static make(a) |
method lib.app.Foo.run | run = () |
method lib.app.Foo.#hide | #hide() |
constant lib.app.table | const table |
function lib.app.table.get | get: function () |
function lib.app.table.put | put() |
""",
    ),
    "web/src/ui/button.tsx": (
        """
export interface Props<T> { onClick(a: T): void; label: string }
/** Draws. */
export abstract class Button { abstract draw(): void; hot = (x: number) => x }
export type Size = 'l' | 's'
export enum Tone { Loud = 1 }
export function over(a: string): void
export function over(a: any) { return <b>{a}</b> }
namespace Inner { export function f() {} }
""",
        """
module ui.button |  |
interface ui.button.Props | export interface Props<T> |
method ui.button.Props.onClick | onClick(a: T): void |
class ui.button.Button | export abstract class Button | Draws.
method ui.button.Button.draw | abstract draw(): void |
method ui.button.Button.hot | hot = (x: number) |
type ui.button.Size | export type Size = 'l' | 's' |
enum ui.button.Tone | export enum Tone |
constant ui.button.Tone.Loud | Loud = 1 |
function ui.button.over | export function over(a: string): void |
function ui.button.over | export function over(a: any) |
function ui.button.Inner.f | function f() |
""",
    ),
    "my-io/src/net/mod.rs": (
        """
//! Sockets.
/// A socket.
#[derive(Debug)]
pub struct Socket<T> { fd: T }
impl<T: Fd> Read for Socket<T> {
    const SIZE: usize = 1;
    fn read(&self) -> u8 where T: Fd { 1 }
}
pub trait Read { fn read(&self) -> u8; }
enum State { Open(u8) }
macro_rules! sock { () => {} }
mod inner { pub async fn wait() {} }
cfg_net! {
    impl Socket { pub fn bind() {} }
}
""",
        """
module my_io::net |  | Sockets.
struct my_io::net::Socket | pub struct Socket<T> | A socket.
constant my_io::net::Socket::SIZE | const SIZE: usize = 1 |
method my_io::net::Socket::read | fn read(&self) -> u8 where T: Fd |
trait my_io::net::Read | pub trait Read |
method my_io::net::Read::read | fn read(&self) -> u8 |
enum my_io::net::State | enum State |
constant my_io::net::State::Open | Open(u8) |
macro my_io::net::sock | macro_rules! sock { () => {} } |
function my_io::net::inner::wait | pub async fn wait() |
method my_io::net::Socket::bind | pub fn bind() |
""",
    ),
    "src/Shop.cs": (
        """
namespace Acme.Shop {
  /// <summary>A basket of <see cref="T:Item"/>s.</summary>
  [Serializable("a[0]")] public class Basket<T> : Base where T : class {
    public const int Most = 9;
    private static readonly int Least = 1;
    private int count;
    public int Count { get { return count; } }
    public Basket(int a) : base(a) { }
    public override int Get<U>(int x) => 1;
    enum Mode { Lax }
  }
  record struct Pair(int A);
  interface IShop { void Open(); }
}
""",
        """
module src/Shop.cs |  |
class Acme.Shop.Basket | public class Basket<T> : Base where T : class | A basket of Items.
constant Acme.Shop.Basket.Most | public const int Most = 9 |
constant Acme.Shop.Basket.Least | private static readonly int Least = 1 |
method Acme.Shop.Basket.Count | public int Count |
method Acme.Shop.Basket.Basket | public Basket(int a) |
method Acme.Shop.Basket.Get | public override int Get<U>(int x) |
enum Acme.Shop.Basket.Mode | enum Mode |
constant Acme.Shop.Basket.Mode.Lax | Lax |
class Acme.Shop.Pair | record struct Pair(int A) |
interface Acme.Shop.IShop | interface IShop |
method Acme.Shop.IShop.Open | void Open() |
""",
    ),
    "lib/shop.rb": (
        """
# frozen_string_literal: true
# Sells.

module Shop # trailing
  # A basket.
  class Cart::Basket < Base
    LIMIT = 3
    def empty?; end
    def Basket.make(a, b = 1)
      # inside
    end
    def self.all = 2
    class << self
      def ==(other) end
    end
    Point = Struct.new(:a) do
      def far; end
    end
  end
end
private def helper; end
""",
        """
module lib/shop.rb |  | Sells.
class Shop | module Shop |
class Shop::Cart::Basket | class Cart::Basket < Base | A basket.
constant Shop::Cart::Basket::LIMIT | LIMIT = 3 |
method Shop::Cart::Basket::empty? | def empty? |
method Shop::Cart::Basket::make | def Basket.make(a, b = 1) |
method Shop::Cart::Basket::all | def self.all |
method Shop::Cart::Basket::== | def ==(other) |
class Shop::Cart::Basket::Point | Point = Struct.new(:a) |
method Shop::Cart::Basket::Point::far | def far |
function helper | private def helper |
""",
    ),
    "src/Shop.php": (
        """
<?php
/** Sells. */
declare(strict_types=1);
namespace App\\Shop;
const LIMIT = 3;
/** A basket. */
#[Entity("a")]
final class Basket extends Base {
    public const A = 1;
    #[X(1)] abstract protected function get(int $x): ?int;
    public static function &ref() { }
}
trait Sells { function sell() {} }
enum Suit: string { case Hearts = 'H'; }
function helper($a) { return function() {}; }
""",
        """
module src/Shop.php |  | Sells.
constant App\\Shop\\LIMIT | const LIMIT = 3 |
class App\\Shop\\Basket | final class Basket extends Base | A basket.
constant App\\Shop\\Basket\\A | public const A = 1 |
method App\\Shop\\Basket\\get | abstract protected function get(int $x): ?int |
method App\\Shop\\Basket\\ref | public static function &ref() |
trait App\\Shop\\Sells | trait Sells |
method App\\Shop\\Sells\\sell | function sell() |
enum App\\Shop\\Suit | enum Suit: string |
constant App\\Shop\\Suit\\Hearts | case Hearts = 'H' |
function App\\Shop\\helper | function helper($a) |
""",
    ),
    "src/Shop.kt": (
        """
package com.acme
/** A basket. */
@Keep("x")
data class Basket<T>(val a: Int) : Base() {
    companion object {
        const val LIMIT = 1
    }
    constructor(b: String) : this(1) { }
    val size: Int
        get() = 1
    override fun get(x: Int): Int { fun local() {} ; return 1 }
}
interface Shop {
    fun open()
}
enum class Mode(val n: Int) {
    LAX(1),
}
object Single {
    val none = object : Shop {
        override fun open() {}
    }
}
suspend fun <T> List<T>.sell(a: Int) = 1
typealias Carts = List<Basket>
fun `a name`() {}
""",
        """
module src/Shop.kt |  |
class com.acme.Basket | data class Basket<T>(val a: Int) : Base() | A basket.
constant com.acme.Basket.LIMIT | const val LIMIT = 1 |
method com.acme.Basket.constructor | constructor(b: String) |
method com.acme.Basket.size | val size: Int |
method com.acme.Basket.get | override fun get(x: Int): Int |
function com.acme.Basket.get.local | fun local() |
interface com.acme.Shop | interface Shop |
method com.acme.Shop.open | fun open() |
enum com.acme.Mode | enum class Mode(val n: Int) |
constant com.acme.Mode.LAX | LAX(1) |
class com.acme.Single | object Single |
constant com.acme.Single.none | val none = object : Shop |
function com.acme.Single.none.open | override fun open() |
method com.acme.List.sell | suspend fun <T> List<T>.sell(a: Int) |
type com.acme.Carts | typealias Carts = List<Basket> |
function com.acme.`a name` | fun `a name`() |
""",
    ),
    "Sources/Shop.swift": (
        """
//  Shop.swift
//  Created by Somebody on 1/2/23.

/// A basket.
@objc public class Basket<T>: Base where T: Item {
    static let shared = Basket()
#if DEBUG
    var size: Int { return 1 }
#endif
    init?(a: Int) { }
    static func == (a: Basket, b: Basket) -> Bool { true }
}
struct Pair { }
enum Mode: String { case lax = "1", strict }
protocol Shop { func open() -> Int }
extension Basket.Inner: Shop { func open() -> Int { 1 } }
func sell(_ a: Int, to b: String) throws {}
let limit = 1
""",
        """
module Sources/Shop.swift |  |
class Basket | public class Basket<T>: Base where T: Item | A basket.
constant Basket.shared | static let shared = Basket() |
method Basket.size | var size: Int |
method Basket.init | init?(a: Int) |
method Basket.== | static func == (a: Basket, b: Basket) -> Bool |
struct Pair | struct Pair |
enum Mode | enum Mode: String |
constant Mode.lax | case lax = "1", strict |
constant Mode.strict | case lax = "1", strict |
interface Shop | protocol Shop |
method Shop.open | func open() -> Int |
method Basket.Inner.open | func open() -> Int |
function sell | func sell(_ a: Int, to b: String) throws |
constant limit | let limit = 1 |
""",
    ),
    "src/Shop.scala": (
        """
package com.acme
package shop
/** A basket. */
@keep
case class Basket[T](a: Int) extends Base with Shop {
  val size = 1
  @`inline` def ++[B >: T](b: B)(implicit c: Int): Int = 1
  type Item = T
}
object Basket { val Limit = 3
  def apply() = 1 }
trait Shop { def open(): Unit }
package object inner { def sell = 1 }
""",
        """
module src/Shop.scala |  |
class com.acme.shop.Basket | case class Basket[T](a: Int) extends Base with Shop | A basket.
method com.acme.shop.Basket.++ | def ++[B >: T](b: B)(implicit c: Int): Int |
type com.acme.shop.Basket.Item | type Item = T |
class com.acme.shop.Basket | object Basket |
constant com.acme.shop.Basket.Limit | val Limit = 3 |
method com.acme.shop.Basket.apply | def apply() |
trait com.acme.shop.Shop | trait Shop |
method com.acme.shop.Shop.open | def open(): Unit |
function com.acme.shop.inner.sell | def sell |
""",
    ),
    "bin/shop.sh": (
        """
#!/bin/bash
# Sells.

# Opens it.
function open-shop() {
  inner() { :; }
}
shop::sell () ( echo )
readonly LIMIT=3
declare -r OTHER=4
""",
        """
module bin/shop.sh |  | Sells.
function open-shop | function open-shop() | Opens it.
function open-shop::inner | inner() |
function shop::sell | shop::sell () |
constant LIMIT | readonly LIMIT=3 |
constant OTHER | declare -r OTHER=4 |
""",
    ),
    "lua/shop/list.lua": (
        """
--- Lists.
local M = {}
--[[ Adds
one. ]]
function M.add(a, b) return 1 end
function list:map() local function inner() end end
local LIMIT = 3
Other.run = function(x) end
""",
        """
module shop.list |  | Lists.
function shop.list.add | function M.add(a, b) | Adds / one.
method shop.list.map | function list:map() |
function shop.list.map.inner | local function inner() |
constant shop.list.LIMIT | local LIMIT = 3 |
method shop.list.Other.run | Other.run = function(x) |
""",
    ),
    "lib/shop.ex": (
        """
defmodule App.Shop do
  @moduledoc \"\"\"
  Sells.
  \"\"\"
  use Base
  @limit 3
  @doc ~S"Opens it."
  @spec open(a) :: b
  def open(name, x) when is_binary(name) do
    name
  end
  defp short(a), do: a
  defmacro twice(x) do x end
  @type t :: integer
end
defprotocol Size do
  def size(x)
end
""",
        """
module lib/shop.ex |  |
class App.Shop | defmodule App.Shop | Sells.
constant App.Shop.limit | limit 3 |
method App.Shop.open | def open(name, x) when is_binary(name) | Opens it.
method App.Shop.short | defp short(a) |
macro App.Shop.twice | defmacro twice(x) |
type App.Shop.t | type t :: integer |
interface Size | defprotocol Size |
method Size.size | def size(x) |
""",
    ),
}


@pytest.mark.parametrize("path", CASES)
def test_symbols_are_read_with_kind_name_signature_and_docstring(path: str) -> None:
    source, expected = CASES[path]
    language = language_of(path)
    assert language is not None
    symbols = extract_symbols(path, source.lstrip("\n").encode(), language)
    lines = [f"{s.kind} {s.fqn} | {s.signature or ''} | {s.docstring or ''}" for s in symbols]
    assert [line.strip().replace("\n", " / ") for line in lines] == expected.strip().splitlines()
    assert all(s.fqn.endswith(s.name) for s in symbols if s.kind != "module")


def test_lines_count_from_one_and_include_the_last() -> None:
    source = b"#define A 1\n\nint f(void)\n{\n}\n"
    language = language_of("a.c")
    assert language is not None
    places = [(s.name, s.start_line, s.end_line) for s in extract_symbols("a.c", source, language)]
    assert places == [("a", 1, 5), ("A", 1, 1), ("f", 3, 5)]


@pytest.mark.parametrize(
    "source",
    [
        b"",
        b"\xff\xfe def f(\x00): (((",
        b"class A:\n" + b"".join(b" " * i + b"class A:\n" for i in range(1, 400)),
        b"x = " + b"(" * 20_000,
    ],
    ids=["empty", "garbage", "nested classes", "nested brackets"],
)
def test_a_broken_file_gives_at_least_its_module(source: bytes) -> None:
    language = language_of("a.py")
    assert language is not None
    assert extract_symbols("a.py", source, language)[0].kind == "module"


@pytest.mark.parametrize(
    ("comment", "text"),
    [
        ("/**\n * One.\n *\n *   two\n */", "One.\n\n  two"),
        ("// a ------\n// ----\n// eslint-disable-next-line\n// b", "a\nb"),
        ("#!/usr/bin/env python\n# -*- coding: utf-8 -*-\n# Runs.", "Runs."),
        ("/* MIT License\n * do what you like */", ""),
        ("// zip -- squeezes bytes\n// (c) 1999 Somebody", "zip -- squeezes bytes"),
    ],
)
def test_a_comment_is_read_without_markers_pragmas_and_licence(comment: str, text: str) -> None:
    assert without_licence(comment_text([comment])) == text
