-- What comes in another order than a server would send it stops nobody.
dofile(common)

run(function()
  -- Not each step that is out of order has an answer.
  mt.set_timeout(1)
  -- Body before headers, headers after the body, no end of headers.
  local function disordered(order)
    local conn = open(6, ALL_ACTIONS, NO_STEPS)
    introduce(conn)
    for _, each in ipairs(order) do
      -- An answer that ends the session is one, too.
      if not pcall(STAGES[each], conn) then break end
    end
    mt.disconnect(conn, false)
  end

  disordered({1, 2, 3, 7, 6, 4, 5, 8})
  disordered({1, 2, 7, 8})
  disordered({1, 2, 3, 4, 6, 6, 7, 4, 7, 8})
  disordered({8})
  disordered({2, 1, 1, 3, 4, 8, 8})
  disordered({7, 4, 6})

  local conn = open(6, ALL_ACTIONS, NO_STEPS)
  introduce(conn)
  message(conn)
  message(conn)
  mt.disconnect(conn)
end)
