-- A mail server's side of the protocol for the scripts beside this one; miltertest defines "socket", "common" and "count".

-- The bits of the protocol, as a server may offer them.
ALL_ACTIONS = 0x1ff
NO_HEADER_CHANGES = 0x06c
ALL_STEPS = 0x1fffff
NO_STEPS = 0

-- miltertest ends without a word where a script fails.
function run(script)
  local well, reason = pcall(script)
  if not well then
    mt.echo(tostring(reason))
    error(reason)
  end
end

function check(failure, what)
  if failure ~= nil then error(what .. ": " .. failure) end
end

function expect(condition, what)
  if not condition then error(what) end
end

-- miltertest takes the last two the other way round than its page says.
function negotiate(conn, version, actions, steps)
  return mt.negotiate(conn, version, steps, actions)
end

function open(version, actions, steps)
  local conn = mt.connect(socket, 40, 0.1)
  expect(conn ~= nil, "no connection")
  check(negotiate(conn, version, actions, steps), "negotiation")
  return conn
end

function introduce(conn)
  check(mt.conninfo(conn, "client.example.net", "192.0.2.1"), "connection")
  if not mt.test_option(conn, SMFIP_NOHELO) then check(mt.helo(conn, "client.example.net"), "helo") end
end

-- The stages of a message, in their order.
STAGES = {
  function(conn) check(mt.mailfrom(conn, "<joe@example.net>"), "sender") end,
  function(conn) check(mt.rcptto(conn, "<inbox@example.org>"), "recipient") end,
  function(conn) if not mt.test_option(conn, SMFIP_NODATA) then check(mt.data(conn), "data") end end,
  function(conn) check(mt.header(conn, "From", "joe@example.net"), "header") end,
  function(conn) check(mt.header(conn, "Subject", "An offer"), "header") end,
  function(conn) check(mt.eoh(conn), "end of headers") end,
  function(conn) check(mt.bodystring(conn, "This is worth six\r\n"), "body") end,
  function(conn) check(mt.eom(conn), "end of message") end,
}

function stages(conn, first, last)
  for each = first, last do STAGES[each](conn) end
end

-- rules: what the status header has of them, with a plain pattern.
function expect_status(conn, rules)
  local reply = mt.getreply(conn)
  expect(reply == SMFIR_CONTINUE or reply == SMFIR_ACCEPT, "the message is not taken: " .. tostring(reply))
  local value = mt.getheader(conn, "X-Corvane-Status", 0)
  expect(value ~= nil, "no status header")
  expect(string.find(value, "rules=" .. rules .. ";", 1, true) ~= nil, "other rules: " .. value)
end

function message(conn)
  stages(conn, 1, #STAGES)
  expect_status(conn, "SIX")
end
