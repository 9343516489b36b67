-- Whatever steps and versions a server offers, a message has its verdict; without changes of headers there is none.
dofile(common)

run(function()
  for _, version in ipairs({2, 3, 4, 6}) do
    for _, steps in ipairs({NO_STEPS, 0x7f, 0x3ff, 0x8ff, ALL_STEPS}) do
      local offered = steps
      if version < 6 then offered = steps % 0x80 end
      local conn = open(version, version < 6 and 0x3f or ALL_ACTIONS, offered)
      introduce(conn)
      message(conn)
      mt.disconnect(conn)
    end
  end

  -- A filter that cannot add its header would let messages pass unscored.
  local conn = mt.connect(socket)
  local failure = negotiate(conn, 6, NO_HEADER_CHANGES, ALL_STEPS)
  expect(failure ~= nil or mt.conninfo(conn, "client.example.net", "192.0.2.1") ~= nil or
         mt.getreply(conn) ~= SMFIR_CONTINUE, "served without the right to change headers")
  mt.disconnect(conn, false)
end)
